package org.quendel.oxli.messages;

/**
 * Reasons of a {@link CloseMessage} that the stand-in gateway defines. Another gateway may define
 * other reasons.
 */
public final class CloseReason {
  /** The listener was shut or closed. */
  public static final int CLOSED_BY_OWNER = 0;
  /**
   * The stream was closed: its last publisher was shut or closed, a publisher with another scheme
   * replaced it, or its server has lost changes.
   */
  public static final int STREAM_CLOSED = 1;
  /** The connection was shut. */
  public static final int CONNECTION_CLOSED = 2;
  /** The server discarded messages before the listener read them. */
  public static final int MESSAGES_LOST = 3;

  private CloseReason() {}

  /** Returns the name of the reason's constant, or the number if there is no constant. */
  public static String nameOf(int reason) {
    switch (reason) {
      case CLOSED_BY_OWNER:
        return "CLOSED_BY_OWNER";
      case STREAM_CLOSED:
        return "STREAM_CLOSED";
      case CONNECTION_CLOSED:
        return "CONNECTION_CLOSED";
      case MESSAGES_LOST:
        return "MESSAGES_LOST";
      default:
        return Integer.toString(reason);
    }
  }
}
