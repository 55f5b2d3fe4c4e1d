package org.quendel.oxli.messages;

/**
 * Contains the life number of the replica. Rows that were received with another life number are
 * stale: the gateway has made the stream again without its rows.
 */
public final class ZrReplLifeNumMessage extends Message {
  private long lifenum;
  private long flags;

  ZrReplLifeNumMessage() {
    super(MessageType.ZRREPL_LIFENUM);
  }

  /** Returns the life number, an unsigned 32-bit number. */
  public long getLifenum() {
    requireUsable();
    return lifenum;
  }

  /** Returns the gateway's flags, an unsigned 32-bit number. */
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
