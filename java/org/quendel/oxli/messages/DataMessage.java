package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/** A message of a scheme. What is set on an outgoing one takes effect with the next post. */
public class DataMessage extends AbstractDataMessage {
  private int userId;
  private String address;
  private DataMessage refMessage;
  private int refLife; // of the message that it referred to when it was set

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

  /**
   * The address the message came from, or goes to, in modified UTF-8; null stands for the record's
   * own.
   */
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
   * Makes the message refer to another, such as the one it answers. A post refuses one that refers to
   * a copy, or to a message that has ended or been closed since. It must not be closed on another
   * thread meanwhile.
   */
  public final void setRefMessage(DataMessage message) {
    refMessage = message;
    if (message != null) refLife = message.getLife();
  }

  /** Whether the message refers to none, or to one that is still what it was. */
  final boolean isReferenceAlive() {
    return refMessage == null || refMessage.getRef() != 0 && refMessage.getLife() == refLife;
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
