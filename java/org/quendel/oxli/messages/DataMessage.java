package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/** A message of a scheme. What is set on an outgoing one takes effect with the next post. */
public class DataMessage extends AbstractDataMessage {
  private int userId;
  private String address;
  private DataMessage refMessage;

  DataMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    this(MessageType.DATA, msgId, msgIndex, msgName, scheme);
  }

  DataMessage(int type, int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(type, msgId, msgIndex, msgName, scheme);
  }

  /** The application's number by which an answer or timeout is recognised. */
  public final int getUserId() {
    return userId;
  }

  /** Sets the application's number. */
  public final void setUserId(int newUserId) {
    userId = newUserId;
  }

  /** The address the message came from, or goes to; null stands for the record's own. */
  public final String getAddress() {
    return address;
  }

  /** Sets where the message goes; null leaves it to the record. */
  public final void setAddress(String newAddress) {
    address = newAddress;
  }

  /** The message that an outgoing one refers to, or null; always null in a delivered one. */
  public final DataMessage getRefMessage() {
    return refMessage;
  }

  /**
   * Makes the message refer to another, such as the one it answers. The other must be alive when
   * this one is posted: to a copy, or after its end or close, there is no reference. It must not be
   * closed on another thread meanwhile.
   */
  public final void setRefMessage(DataMessage message) {
    refMessage = message;
  }

  @Override
  public DataMessage copy() {
    return (DataMessage) super.copy();
  }

  @Override
  void forgetRecord() {
    super.forgetRecord();
    // Native code does not reset it when it uses the object again.
    refMessage = null;
  }
}
