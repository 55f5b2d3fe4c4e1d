package org.quendel.oxli.messages;

/**
 * The life number of the replicated stream. Rows received under another life number are invalid.
 */
public final class ZrReplLifeNumMessage extends Message {
  private long lifenum;
  private long flags;

  ZrReplLifeNumMessage() {
    super(MessageType.ZRREPL_LIFENUM);
  }

  /** Returns the stream's life number, unsigned 32-bit. */
  public long getLifenum() {
    requireUsable();
    return lifenum;
  }

  /** Returns the gateway's flags, unsigned 32-bit. */
  public long getFlags() {
    requireUsable();
    return flags;
  }

  void setLifenum(long newLifenum) {
    lifenum = newLifenum;
  }

  void setFlags(long newFlags) {
    flags = newFlags;
  }

  @Override
  String contents() {
    return ", life number " + lifenum;
  }
}
