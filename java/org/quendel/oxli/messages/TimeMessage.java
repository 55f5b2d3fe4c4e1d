package org.quendel.oxli.messages;

/** The gateway's clock, at the interval that the listener asked for. */
public final class TimeMessage extends Message {
  private long time;

  TimeMessage() {
    super(MessageType.TIME);
  }

  /**
   * Returns the time in the gateway's unit: of the stand-in gateway, microseconds since the epoch.
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
