package org.quendel.oxli.messages;

/** Reports that no reply to a request was posted within the timeout. */
public final class ZrMqTimeOutMessage extends Message {
  private int userId;

  ZrMqTimeOutMessage() {
    super(MessageType.ZRMQ_TIMEOUT);
  }

  /** Returns the user id of the request. */
  public int getUserId() {
    requireUsable();
    return userId;
  }

  void setUserId(int newUserId) {
    userId = newUserId;
  }

  @Override
  String contents() {
    return ", user id " + userId;
  }
}
