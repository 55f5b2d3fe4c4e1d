package org.quendel.oxli.messages;

/** No answer to a posted message came in time. */
public final class ZrMqTimeOutMessage extends Message {
  private int userId;

  ZrMqTimeOutMessage() {
    super(MessageType.ZRMQ_TIMEOUT);
  }

  /** The user id of the message that was posted. */
  public int getUserId() {
    return userId;
  }

  void setUserId(int newUserId) {
    userId = newUserId;
  }
}
