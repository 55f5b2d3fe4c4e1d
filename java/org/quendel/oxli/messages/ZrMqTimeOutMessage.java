package org.quendel.oxli.messages;

/** A message that was posted with the wish for a reply got none in time. */
public final class ZrMqTimeOutMessage extends Message {
  private int userId;

  ZrMqTimeOutMessage() {
    super(MessageType.ZRMQ_TIMEOUT);
  }

  /** Returns the user id of the message that was posted. */
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
