package org.quendel.oxli.messages;

/** Contains the gateway's time. Delivered at the interval in the listener's settings. */
public final class TimeMessage extends Message {
  private long time;

  TimeMessage() {
    super(MessageType.TIME);
  }

  /**
   * Returns the time in the gateway's unit; with the stand-in gateway, in microseconds since 1970
   * (UTC).
   */
  public long getTime() {
    requireUsable();
    return time;
  }

  void setTime(long newTime) {
    time = newTime;
  }

  @Override
  String contents() {
    return ", time " + time;
  }
}
