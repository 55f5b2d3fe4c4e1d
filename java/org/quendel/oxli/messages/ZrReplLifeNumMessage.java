package org.quendel.oxli.messages;

/** The replicated stream has begun anew: rows received before are void. */
public final class ZrReplLifeNumMessage extends Message {
  private long lifenum;
  private long flags;

  ZrReplLifeNumMessage() {
    super(MessageType.ZRREPL_LIFENUM);
  }

  /** The stream's life number, unsigned 32-bit. */
  public long getLifenum() {
    return lifenum;
  }

  /** The gateway's flags, unsigned 32-bit. */
  public long getFlags() {
    return flags;
  }

  void setLifenum(long newLifenum) {
    lifenum = newLifenum;
  }

  void setFlags(long newFlags) {
    flags = newFlags;
  }
}
