package org.quendel.oxli;

/**
 * States of connections, listeners and publishers that the stand-in gateway defines. Another
 * gateway may define other states.
 */
public final class State {
  /** Closed. */
  public static final int CLOSED = 0;
  /**
   * Listener: it has not received its {@link org.quendel.oxli.messages.OpenMessage} yet.
   * Connection: its server is not reached.
   */
  public static final int OPENING = 1;
  /** Open. */
  public static final int ACTIVE = 2;
  /**
   * Listener: it has not received its {@link org.quendel.oxli.messages.CloseMessage} yet.
   * Publisher: its posts are being sent to a server.
   */
  public static final int CLOSING = 3;

  private State() {}

  /** Returns the name of the state's constant, or the number if there is no constant. */
  public static String nameOf(int state) {
    switch (state) {
      case CLOSED:
        return "CLOSED";
      case OPENING:
        return "OPENING";
      case ACTIVE:
        return "ACTIVE";
      case CLOSING:
        return "CLOSING";
      default:
        return Integer.toString(state);
    }
  }
}
