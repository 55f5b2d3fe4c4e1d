package org.quendel.oxli.messages;

/** The listener has been closed: no message follows until it is opened again. */
public final class CloseMessage extends Message {
  private int reason;

  CloseMessage() {
    super(MessageType.CLOSE);
  }

  /** The gateway's reason code, 0 when it gave none. */
  public int getReason() {
    return reason;
  }

  void setReason(int newReason) {
    reason = newReason;
  }
}
