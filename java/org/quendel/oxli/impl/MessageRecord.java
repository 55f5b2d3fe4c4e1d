package org.quendel.oxli.impl;

import java.lang.invoke.VarHandle;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.HashMap;
import java.util.Map;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.MessageDesc;

/**
 * The internal part of a message: the address of the gateway's record, the payload in the record's
 * memory, and the thread that may use them. Messages extend this class; listeners, publishers and
 * fields use {@link MessageAccess}; native code fills the objects.
 *
 * <p>An outgoing message has a {@link MessageOwner}. A copy has no record. Every other message is a
 * delivered message: only the thread inside {@code onMessage} may use it, until {@code onMessage}
 * returns. If native code delivers it without a Java listener, any thread may use it.
 */
public abstract class MessageRecord extends NativeRef implements Cloneable {
  private static final int MADE_BY_GATEWAY = 0;
  private static final int MADE_ON_HEAP = 1;

  // Values of `user` that are not threads. They are no Thread objects, because these would keep the
  // context class loader of the creating thread reachable.
  private static final Object NOBODY = new Object();
  private static final Object NATIVE_CODE = new Object();

  /**
   * The thread that may use the message. Null means any thread: in outgoing messages, in copies,
   * and in messages that native code delivers without a Java listener. In other messages it is the
   * thread inside {@code onMessage}, NOBODY after {@code onMessage} has returned, or NATIVE_CODE
   * while native code fills the object.
   *
   * <p>Not volatile: a thread reads a reference to itself only if it has stored that reference in
   * the field and has stored nothing else in the field since then.
   */
  private Object user;

  private int createType = MADE_BY_GATEWAY;
  private long schemeRef;
  private ByteBuffer payload; // little-endian; position 0, limit at the capacity
  private ByteBuffer view; // the application's buffer over the payload; null until it is requested
  private MessageOwner owner;
  private MessageDesc desc; // null if unknown or not requested yet
  private FieldDesc[] zblockFields; // of outgoing messages; null if unknown
  private Map<Integer, Descriptor> setBlocks; // by offset; null if none is set
  private int generation; // incremented when the record is removed

  /** Called by the message classes. */
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
   * Checks that the calling thread may use the message now.
   *
   * @throws IllegalStateException if it may not
   */
  protected final void requireUsable() {
    if (user != Thread.currentThread()) requireUnconfined();
  }

  /**
   * Checks the same as {@link #requireUsable}, but also succeeds while native code fills the
   * object. For methods that native code calls.
   */
  protected final void requireUsableOrFilling() {
    if (user != NATIVE_CODE) requireUsable();
  }

  private void requireUnconfined() {
    if (user != null) {
      throw new IllegalStateException(this + " was delivered: only the thread inside onMessage may"
          + " use it, until onMessage returns; make a copy() to use it later or on another thread");
    }
    if (isClosed()) throw new IllegalStateException(this + " is closed");
  }

  /** Returns whether the calling thread may use the message now. */
  protected final boolean isUsable() {
    return user == Thread.currentThread() || user == null && !isClosed();
  }

  /**
   * Returns whether a Java listener has delivered the object, which native code may then fill
   * again. Returns false for the objects that native code delivers without a Java listener.
   */
  protected final boolean isReused() {
    return user != null;
  }

  private boolean isClosed() {
    return getRef() == 0 && createType == MADE_BY_GATEWAY;
  }

  /**
   * Returns whether this is a delivered message: neither outgoing nor a copy. Can be called at any
   * time.
   */
  public final boolean isDelivered() {
    return owner == null && createType == MADE_BY_GATEWAY;
  }

  /**
   * Checks that the message was not delivered.
   *
   * @throws IllegalStateException if it was
   */
  protected final void requireWritable() {
    if (isDelivered()) throw new IllegalStateException(this + " was delivered: it is read-only");
  }

  /** Returns the owner of an outgoing message, or null for a delivered message or a copy. */
  protected final MessageOwner owner() {
    return owner;
  }

  /** Returns a number that changes when the record is removed from the object. */
  protected final int generation() {
    return generation;
  }

  /**
   * Returns the payload, or null if there is none: little-endian, with position 0 and its limit at
   * its capacity. Read and write it by offset; do not change its position, limit and order.
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
    // A delivered payload is read-only: if the application overwrote the descriptor of a z-block,
    // readers would follow an arbitrary address.
    view = isDelivered() ? payload.asReadOnlyBuffer() : payload.duplicate();
    return view.order(ByteOrder.LITTLE_ENDIAN);
  }

  /** Returns the description of the message, or null if it is unknown or ambiguous. */
  protected MessageDesc findDesc() {
    return desc;
  }

  /** Sets the description that {@link #findDesc} returns; null if it is unknown. */
  protected final void setDesc(MessageDesc newDesc) {
    desc = newDesc;
  }

  /**
   * Returns a copy of the same class and content, without a record and with its payload on the
   * heap.
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
    copy.view(); // made here, because several threads may read the copy at once
    return copy;
  }

  /**
   * Checks that the gateway may read the record and everything that it refers to.
   *
   * @throws IllegalStateException if it may not
   */
  protected final void requireReadableByGateway() {
    requireUsable();
    if (getRef() == 0) throw new IllegalStateException(this + " is a copy: it has no record");
    requireOwnBlocks();
    requireReference();
  }

  /**
   * Checks that the gateway may read the message that this one refers to.
   *
   * @throws IllegalStateException if it may not
   */
  protected void requireReference() {}

  /**
   * Checks that each z-block field of an outgoing message is empty or was written by {@code
   * setZBlock}. The gateway would follow any other bytes as an address.
   *
   * @throws IllegalStateException if a field contains other bytes
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

  /**
   * Records the descriptor at the offset. References its memory until the next call for the same
   * offset, or until the record is removed.
   */
  final void noteBlock(int offset, ByteBuffer memory) {
    if (setBlocks == null) setBlocks = new HashMap<>();
    setBlocks.put(offset, new Descriptor(
        payload.getInt(offset), payload.getLong(offset + Integer.BYTES), memory));
  }

  /** Makes this message an outgoing message. */
  final void adopt(MessageOwner newOwner, MessageDesc newDesc, FieldDesc[] newZblockFields) {
    owner = newOwner;
    desc = newDesc;
    zblockFields = newZblockFields;
  }

  /** Makes the message usable on the calling thread. Called before {@code onMessage}. */
  final void acquire() {
    final boolean isFirst = user == null;
    user = Thread.currentThread();
    // A thread that reads the object without synchronisation must not see null, which means any
    // thread.
    if (isFirst) VarHandle.storeStoreFence();
  }

  /** Makes the message unusable. Called after {@code onMessage}. */
  final void release() {
    user = NOBODY;
    forgetRecord();
  }

  /** Removes the record from the message. */
  protected void forgetRecord() {
    set(0);
    ++generation;
    payload = null;
    view = null;
    setBlocks = null;
  }

  // Native code calls the methods below. JNI ignores their access modifiers.

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
    // If a later step fails, an outer onMessage must not be able to use the partly filled object.
    if (user != null) user = NATIVE_CODE;
    payload = newPayload == null ? null : newPayload.order(ByteOrder.LITTLE_ENDIAN);
    view = null;
  }

  /** Does nothing: Java code uses {@link MessageOwner} instead of the publisher's address. */
  protected final void setPublisherOwner(long publisher) {}

  /** Returns 0 if the gateway made the record, 1 for a copy on the heap. */
  public final int getCreateType() {
    return createType;
  }

  /** Makes this message a copy on the heap. */
  protected final void setAllocCreateType() {
    createType = MADE_ON_HEAP;
  }
}
