package org.quendel.oxli.messages;

/** The gateway's clock. */
public final class TimeMessage extends Message {
  private long time;

  TimeMessage() {
    super(MessageType.TIME);
  }

  /** The time in the gateway's unit. */
  public long getTime() {
    return time;
  }

  void setTime(long newTime) {
    time = newTime;
  }
}
