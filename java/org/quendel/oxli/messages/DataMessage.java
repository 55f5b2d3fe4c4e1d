package org.quendel.oxli.messages;

import org.quendel.oxli.Scheme;

/**
 * A data message of a stream. Values set in an outgoing message are passed to the gateway by the
 * next post.
 */
public class DataMessage extends AbstractDataMessage {
  private int userId;
  private String address;
  private DataMessage refMessage;
  private int refGeneration; // generation of refMessage when it was set

  DataMessage(int msgId, int msgIndex, String msgName, Scheme scheme) {
    this(MessageType.DATA, msgId, msgIndex, msgName, scheme);
  }

  DataMessage(int type, int msgId, int msgIndex, String msgName, Scheme scheme) {
    super(type, msgId, msgIndex, msgName, scheme);
  }

  /**
   * Returns the user id: a number by which the application finds the request of a reply or timeout.
   */
  public final int getUserId() {
    requireUsable();
    return userId;
  }

  /** Sets the user id. */
  public final void setUserId(int newUserId) {
    requireUsableOrFilling();
    userId = newUserId;
  }

  /**
   * Returns the source address of a delivered message or the destination address of an outgoing
   * message. Null means that a delivered message has no address, or that a post does not change the
   * address in the record. The string is converted to and from modified UTF-8.
   */
  public final String getAddress() {
    requireUsable();
    return address;
  }

  /**
   * Sets the destination address. With null, a post does not change the address in the record.
   */
  public final void setAddress(String newAddress) {
    requireUsableOrFilling();
    address = newAddress;
  }

  /**
   * Returns the message that this one refers to, or null. It is null when a message is delivered.
   */
  public final DataMessage getRefMessage() {
    requireUsable();
    return refMessage;
  }

  /**
   * Makes this message refer to another one, for example to the request that it replies to. Null
   * removes the reference. A post throws if the reference is to a copy or to a message that is no
   * longer usable.
   */
  public final void setRefMessage(DataMessage message) {
    requireUsableOrFilling();
    refMessage = message;
    if (message != null) refGeneration = message.generation();
  }

  @Override
  protected final void requireReference() {
    if (refMessage == null) return;
    // The object may contain another message than when the reference was set.
    if (refMessage.getRef() == 0 || !refMessage.isUsable()
        || refMessage.generation() != refGeneration) {
      throw new IllegalStateException(this + " refers to " + refMessage
          + ", which is a copy, is closed, or is a delivered message that is no longer usable");
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
    // Removed here, because native code does not change it when it fills the object again.
    refMessage = null;
  }
}
