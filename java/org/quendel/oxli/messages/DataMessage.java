package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/** A message of a scheme. What is set on an outgoing one takes effect with the next post. */
public class DataMessage extends AbstractDataMessage {
  private int userId;
  private String address;
  private DataMessage refMessage;
  private int refLife; // of refMessage when it was set

  DataMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    this(MessageType.DATA, msgId, msgIndex, msgName, scheme);
  }

  DataMessage(int type, int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(type, msgId, msgIndex, msgName, scheme);
  }

  /** Returns the application's number, by which it recognises a reply or a timeout. */
  public final int getUserId() {
    requireUsable();
    return userId;
  }

  /** Sets the application's number. */
  public final void setUserId(int newUserId) {
    requireUsableOrFilling();
    userId = newUserId;
  }

  /**
   * Returns the address that the message came from or goes to, or null for the record's own. It
   * passes through modified UTF-8.
   */
  public final String getAddress() {
    requireUsable();
    return address;
  }

  /** Sets the address that the message goes to; null leaves the record's own. */
  public final void setAddress(String newAddress) {
    requireUsableOrFilling();
    address = newAddress;
  }

  /** Returns the message that an outgoing one refers to, or null; null in a delivered message. */
  public final DataMessage getRefMessage() {
    requireUsable();
    return refMessage;
  }

  /**
   * Makes the message refer to another one, such as the one that it replies to, or to none. A post
   * refuses a reference to a copy, and to a message that may no longer be used.
   */
  public final void setRefMessage(DataMessage message) {
    requireUsableOrFilling();
    refMessage = message;
    if (message != null) refLife = message.life();
  }

  @Override
  protected final void requireReference() {
    if (refMessage == null) return;
    // The object may have been used again for another message since.
    if (refMessage.getRef() == 0 || !refMessage.isUsable() || refMessage.life() != refLife) {
      throw new IllegalStateException(this + " refers to " + refMessage
          + ", which is a copy, is closed or was delivered before");
    }
    refMessage.requireOwnBlocks();
  }

  @Override
  public DataMessage copy() {
    return (DataMessage) super.copy();
  }

  @Override
  String contents() {
    return ", user id " + userId + (address == null ? "" : ", address " + address);
  }

  @Override
  protected final void forgetRecord() {
    super.forgetRecord();
    // Native code does not reset it when it fills the object again.
    refMessage = null;
  }
}
