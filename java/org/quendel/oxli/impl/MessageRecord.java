package org.quendel.oxli.impl;

import java.lang.invoke.VarHandle;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.HashMap;
import java.util.Map;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.MessageDesc;

/**
 * The part of a message that applications must not touch: the address of the gateway's record, the
 * payload in the record's memory, and who may use them. Messages extend it; listeners, publishers
 * and fields reach it through {@link MessageAccess}; native code fills it.
 *
 * <p>An outgoing message has a {@link MessageOwner}. A copy has no record. Every other message was
 * delivered: only the thread inside {@code onMessage} may use it, until {@code onMessage} returns.
 */
public abstract class MessageRecord extends NativeRef implements Cloneable {
  private static final int MADE_BY_GATEWAY = 0;
  private static final int MADE_ON_HEAP = 1;

  // Values of `user` that are not threads. Not Thread objects, because those would keep the context
  // class loader of the creating thread alive.
  private static final Object NOBODY = new Object();
  private static final Object NATIVE_CODE = new Object();

  /**
   * Who may use the message: null stands for any thread (outgoing messages, copies, and messages
   * that native code hands out without a {@code Listener}); otherwise the thread inside {@code
   * onMessage}, NOBODY after it returned, and NATIVE_CODE while native code fills the object.
   *
   * <p>Not volatile: a thread reads itself here only if it wrote the field last.
   */
  private Object user;

  private int createType = MADE_BY_GATEWAY;
  private long schemeRef;
  private ByteBuffer payload; // little-endian; position 0, limit at the capacity
  private ByteBuffer view; // what the application sees of it; null until it asks
  private MessageOwner owner;
  private MessageDesc desc; // null if unknown, or not asked for yet
  private FieldDesc[] zblockFields; // of outgoing messages; null if unknown
  private Map<Integer, Descriptor> setBlocks; // by offset; null if none is set
  private int life; // number of records that the object has lost

  /** For messages. */
  protected MessageRecord() {}

  /** A descriptor that the payload must still contain when the gateway reads it. */
  private static final class Descriptor {
    final int size;
    final long address;
    final ByteBuffer memory; // referenced to keep it alive

    Descriptor(int size, long address, ByteBuffer memory) {
      this.size = size;
      this.address = address;
      this.memory = memory;
    }
  }

  /**
   * Throws unless the calling thread may use the message now.
   *
   * @throws IllegalStateException if it may not
   */
  protected final void requireUsable() {
    if (user != Thread.currentThread()) requireUnconfined();
  }

  /** The same, for methods that native code calls while it fills the object. */
  protected final void requireUsableOrFilling() {
    if (user != NATIVE_CODE) requireUsable();
  }

  private void requireUnconfined() {
    if (user != null) {
      throw new IllegalStateException(this + " was delivered: only the thread inside onMessage may"
          + " use it, until onMessage returns; copy() gives one to keep or to pass on");
    }
    if (isClosed()) throw new IllegalStateException(this + " is closed");
  }

  /** Returns whether the calling thread may use the message now. */
  protected final boolean isUsable() {
    return user == Thread.currentThread() || user == null && !isClosed();
  }

  /** Returns whether a listener has passed the object to a subscriber: it may be filled again. */
  protected final boolean isReused() {
    return user != null;
  }

  private boolean isClosed() {
    return getRef() == 0 && createType == MADE_BY_GATEWAY;
  }

  /**
   * Returns whether the message was delivered: it is neither outgoing nor a copy. Always possible.
   */
  public final boolean isDelivered() {
    return owner == null && createType == MADE_BY_GATEWAY;
  }

  /**
   * Throws if the message was delivered.
   *
   * @throws IllegalStateException if it was
   */
  protected final void requireWritable() {
    if (isDelivered()) throw new IllegalStateException(this + " was delivered: it is read-only");
  }

  /** Returns the publisher's side of an outgoing message, else null. */
  protected final MessageOwner owner() {
    return owner;
  }

  /** Returns a number that changes when the object loses its record. */
  protected final int life() {
    return life;
  }

  /**
   * Returns the payload, or null if there is none: little-endian, position 0, its limit at its
   * capacity. For reading and writing by offset; its state must not change.
   *
   * @throws IllegalStateException if the calling thread may not use the message
   */
  protected final ByteBuffer payload() {
    requireUsable();
    return payload;
  }

  /** Returns the application's buffer over the payload; read-only if the message was delivered. */
  protected final ByteBuffer view() {
    requireUsable();
    return view != null || payload == null ? view : newView();
  }

  private ByteBuffer newView() {
    // An application that overwrote a z-block's descriptor would make others follow any address.
    view = isDelivered() ? payload.asReadOnlyBuffer() : payload.duplicate();
    return view.order(ByteOrder.LITTLE_ENDIAN);
  }

  /** Returns the description of the message, or null if it is unknown or ambiguous. */
  protected MessageDesc findDesc() {
    return desc;
  }

  /** Makes the description the one of this object, for good. */
  protected final void setDesc(MessageDesc newDesc) {
    desc = newDesc;
  }

  /**
   * Returns a message of the same class and content without a record: its payload is on the heap.
   *
   * @throws IllegalStateException if the calling thread may not use the message
   */
  protected final MessageRecord copyToHeap() {
    requireUsable();
    final MessageRecord copy;
    try {
      copy = (MessageRecord) clone();
    } catch (CloneNotSupportedException e) {
      throw new AssertionError(e);
    }
    copy.user = null;
    copy.set(0);
    copy.schemeRef = 0;
    copy.owner = null;
    copy.zblockFields = null;
    copy.setBlocks = null;
    copy.setAllocCreateType();
    copy.setData(payload == null ? null
        : ByteBuffer.allocate(payload.capacity()).put(payload.duplicate()).clear());
    copy.view(); // here, because several threads may read the copy
    return copy;
  }

  /**
   * Throws unless the gateway may read the record and what it refers to.
   *
   * @throws IllegalStateException if it may not
   */
  protected final void requireReadableByGateway() {
    requireUsable();
    if (getRef() == 0) throw new IllegalStateException(this + " is a copy: it has no record");
    requireOwnBlocks();
    requireReference();
  }

  /** Throws if the message refers to another one that the gateway must not read. */
  protected void requireReference() {}

  /**
   * Throws if a z-block field of an outgoing message contains anything but what {@code setZBlock}
   * wrote: the gateway would follow it as an address.
   */
  protected final void requireOwnBlocks() {
    if (zblockFields == null || payload == null) return;
    for (FieldDesc field : zblockFields) {
      if (!isOwnBlock(field.getOffset())) {
        throw new IllegalStateException(
            field + " of " + this + " contains what setZBlock did not write");
      }
    }
  }

  private boolean isOwnBlock(int offset) {
    if (offset > payload.capacity() - MessageAccess.DESCRIPTOR_SIZE) return true;
    final int size = payload.getInt(offset);
    if (size == 0) return true;
    final Descriptor set = setBlocks == null ? null : setBlocks.get(offset);
    return set != null && set.size == size
        && set.address == payload.getLong(offset + Integer.BYTES);
  }

  /** Notes the descriptor at the offset; keeps its memory alive until the next call or the end. */
  final void noteBlock(int offset, ByteBuffer memory) {
    if (setBlocks == null) setBlocks = new HashMap<>();
    setBlocks.put(offset, new Descriptor(
        payload.getInt(offset), payload.getLong(offset + Integer.BYTES), memory));
  }

  /** Makes it an outgoing message. */
  final void adopt(MessageOwner newOwner, MessageDesc newDesc, FieldDesc[] newZblockFields) {
    owner = newOwner;
    desc = newDesc;
    zblockFields = newZblockFields;
  }

  /** Lets the calling thread, which is about to enter {@code onMessage}, use the message. */
  final void acquire() {
    final boolean isFirst = user == null;
    user = Thread.currentThread();
    // A thread that gets the object without synchronisation must not find it unconfined.
    if (isFirst) VarHandle.storeStoreFence();
  }

  /** Ends the use that {@link #acquire} began. */
  final void release() {
    user = NOBODY;
    forgetRecord();
  }

  /** Called when the message loses its record. */
  protected void forgetRecord() {
    set(0);
    ++life;
    payload = null;
    view = null;
    setBlocks = null;
  }

  // What follows is called by native code, whatever its access.

  /** Sets the address of the record: the last step of filling the object. */
  protected final void setRef(long newRef) {
    set(newRef);
  }

  /** Returns the address of the gateway's scheme description, or 0. */
  protected final long getSchemeRef() {
    return schemeRef;
  }

  /** Sets the address of the gateway's scheme description. */
  protected final void setSchemeRef(long newRef) {
    schemeRef = newRef;
  }

  /** Sets the payload: the first step of filling the object with another record. */
  protected void setData(ByteBuffer newPayload) {
    // A failure before the last step must not leave the object to an outer onMessage.
    if (user != null) user = NATIVE_CODE;
    payload = newPayload == null ? null : newPayload.order(ByteOrder.LITTLE_ENDIAN);
    view = null;
  }

  /** Does nothing: publishers know their messages by {@link MessageOwner}. */
  protected final void setPublisherOwner(long publisher) {}

  /** Returns 0 if the gateway made the record, 1 for a copy on the heap. */
  public final int getCreateType() {
    return createType;
  }

  /** Makes it a copy on the heap. */
  protected final void setAllocCreateType() {
    createType = MADE_ON_HEAP;
  }
}
