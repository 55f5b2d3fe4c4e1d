package org.quendel.oxli.messages;

/** Reports that the listener has closed. No message follows until it is opened again. */
public final class CloseMessage extends Message {
  private int reason;

  CloseMessage() {
    super(MessageType.CLOSE);
  }

  /** Returns the gateway's reason code, such as one of {@link CloseReason}; 0 if it gave none. */
  public int getReason() {
    requireUsable();
    return reason;
  }

  void setReason(int newReason) {
    reason = newReason;
  }

  @Override
  String contents() {
    return ", reason " + CloseReason.nameOf(reason);
  }
}
