package org.quendel.oxli;

/**
 * States of connections, listeners and publishers, as the stand-in gateway gives them. Another
 * gateway may have its own.
 */
public final class State {
  /** Closed. */
  public static final int CLOSED = 0;
  /** A listener that has not received its {@link org.quendel.oxli.messages.OpenMessage} yet. */
  public static final int OPENING = 1;
  /** Open. */
  public static final int ACTIVE = 2;
  /** A listener that has not received its {@link org.quendel.oxli.messages.CloseMessage} yet. */
  public static final int CLOSING = 3;

  private State() {}

  /** Returns the name of the constant above, or the number. */
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
