package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Objects;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.NativeRef;
import org.quendel.oxli.impl.ObjRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.Message;

/**
 * A block of bytes that a message refers to instead of containing it in its payload. Java code
 * reads and writes the bytes in place. Made by {@link Environment#newZBlock(ByteBuffer)} over
 * memory to send, or by {@link Environment#newZBlock()} to receive. One object can be used for any
 * number of messages.
 *
 * <pre>{@code
 * try (ZBlock picture = environment.newZBlock(buffer)) {
 *   field.setZBlock(message, picture);
 *   publisher.post(message);
 * }
 * ...
 * field.getZBlock(message, received); // inside onMessage
 * received.getData();
 * }</pre>
 *
 * <p>Memory to send must not change during a post. The gateway reads it during the post only. If
 * the memory is a mapped file and another process truncates the file, a post that reads the missing
 * bytes ends the virtual machine with a bus error. Received bytes are read-only memory of the
 * gateway and may be used while the message that refers to them is usable.
 *
 * <p>The environment owns its z-blocks and closes them when it is closed. Thread-safe: calls on one
 * z-block exclude each other.
 */
public final class ZBlock extends NativeRef implements AutoCloseable {
  private final Environment environment;
  private final Origin origin = new Origin();
  // Guarded by this object's monitor, like the handle in the superclass.
  private boolean closed;
  private ByteBuffer memory; // memory to send; null in a z-block to receive
  private Message source; // the message that the bytes were received with, or null
  private ByteBuffer payload; // the payload of the source when the bytes were received
  private ByteBuffer data; // the bytes to send, or the received bytes, or null

  ZBlock(Environment environment) {
    this.environment = environment;
  }

  /** Makes a z-block that native code owns: it counts as closed, and releases nothing. */
  ZBlock(long handle) {
    this(null);
    closed = true;
  }

  /** Registers the z-block. Binds it to the memory unless that is null. */
  synchronized void create(ByteBuffer newMemory) {
    // Registered first, inside the lock: a close of the environment then waits for the binding.
    environment.register(this);
    if (newMemory == null) return;
    boolean made = false;
    try {
      Results.check(
          "Environment.newZBlock", environment, OxliImpl.zblock_new(this, newMemory, this));
      made = true;
    } finally {
      if (!made) close();
    }
    setMemory(newMemory);
  }

  /**
   * Returns a little-endian buffer over the bytes to send, or over the received bytes; null if
   * nothing has been received. Returns the same buffer until the z-block is bound to other bytes.
   *
   * @throws IllegalStateException if the z-block is closed, or if the message that the bytes were
   *     received with is no longer usable
   */
  public synchronized ByteBuffer getData() {
    requireOpen();
    if (source != null && MessageAccess.payloadOf(source) != payload) {
      throw new IllegalStateException(
          this + ": the message that refers to the bytes is no longer usable");
    }
    return data;
  }

  /**
   * Binds the z-block to other memory to send. Messages whose field was set before still refer to
   * the earlier memory.
   *
   * @param newMemory a direct buffer; the z-block consists of the bytes from its position to its
   *     limit
   * @throws IllegalArgumentException if the buffer is not direct
   * @throws IllegalStateException if the z-block was made to receive or is closed
   */
  public synchronized void rebind(ByteBuffer newMemory) {
    final ByteBuffer slice = memoryOf(newMemory);
    requireOpen();
    requireMemory(); // otherwise the native would change the descriptor in a received payload
    Results.check("ZBlock.rebind", this, OxliImpl.zblock_rebind(slice, getRef()));
    setMemory(slice);
  }

  /**
   * Releases the z-block and its reference to the memory. Messages that refer to the memory keep it
   * alive.
   *
   * @throws OxliException if native code reports an error; the z-block is closed nevertheless
   */
  @Override
  public synchronized void close() {
    if (closed) return;
    closed = true;
    forget();
    final long handle = getRef();
    set(0);
    try {
      Results.check("ZBlock.close", this, OxliImpl.zblock_destroy(handle));
    } finally {
      // Last, because Environment.close waits only for z-blocks in its set.
      environment.forget(this);
    }
  }

  /** Returns whether the z-block is closed, to send or to receive, and the number of its bytes. */
  @Override
  public synchronized String toString() {
    if (closed) return "closed z-block";
    return (memory != null ? "z-block to send" : "z-block to receive")
        + (data != null ? ", " + data.capacity() + " bytes" : "");
  }

  /**
   * Returns a buffer over the bytes from position to limit, for native code.
   *
   * @throws IllegalArgumentException if the buffer is not direct
   */
  static ByteBuffer memoryOf(ByteBuffer buffer) {
    Objects.requireNonNull(buffer, "buffer");
    if (!buffer.isDirect()) throw new IllegalArgumentException(buffer + " is not direct");
    return buffer.slice();
  }

  /**
   * Returns the 8 bytes at the address. Reads them through a z-block, because no other native reads
   * memory by its address.
   */
  static long readLong(long address) {
    final ByteBuffer descriptor = ByteBuffer.allocateDirect(MessageAccess.DESCRIPTOR_SIZE)
        .order(ByteOrder.LITTLE_ENDIAN).putInt(Long.BYTES).putLong(address);
    final ObjRef ref = new ObjRef();
    final ZBlock reader = new ZBlock(0);
    try {
      OxliImpl.zblock_wrap(descriptor, ref, reader, 0);
      return reader.data.getLong(0);
    } finally {
      OxliImpl.zblock_destroy(ref.getRef());
    }
  }

  /** Adds the z-block to the groups. */
  void dump(Dump.Groups groups) {
    // Reads `memory` without the lock: it is null while the z-block is being made or closed.
    groups.add(memory == null ? "z-block without memory to send" : "z-block to send", origin);
  }

  /** Binds the z-block to the descriptor in the field of a delivered message's payload. */
  synchronized void receive(Message from, ByteBuffer bytes, FieldDesc field) {
    requireOpen();
    if (!from.isDelivered()) throw new IllegalStateException(from + " was not delivered");
    if (memory != null) throw new IllegalStateException(this + " cannot receive");
    forget();
    OxliImpl.zblock_wrap(bytes, this, this, field.getOffset());
    if (data == null) {
      final int size = bytes.getInt(field.getOffset());
      throw new OxliException("FieldDesc.getZBlock: cannot read the block of "
          + Integer.toUnsignedString(size) + " bytes of " + field + " of " + from);
    }
    data = data.asReadOnlyBuffer().order(ByteOrder.LITTLE_ENDIAN);
    source = from;
    payload = bytes;
  }

  /** Writes the descriptor at the offset of a message's payload. Returns the memory to send. */
  synchronized ByteBuffer send(ByteBuffer bytes, int offset) {
    requireOpen();
    requireMemory();
    if (OxliImpl.zblock_unwrap(bytes, getRef(), offset) != 0) {
      throw Results.failure("FieldDesc.setZBlock", this, ResultCode.INTERNAL);
    }
    return memory;
  }

  /** Sets the bytes to send or the received bytes. Native code passes null if it has none. */
  void setData(ByteBuffer newData) {
    data = newData == null ? null : newData.order(ByteOrder.LITTLE_ENDIAN);
  }

  private void setMemory(ByteBuffer newMemory) {
    memory = newMemory;
    setData(newMemory.duplicate());
  }

  private void forget() {
    memory = null;
    source = null;
    payload = null;
    data = null;
  }

  private void requireOpen() {
    if (closed) throw new IllegalStateException("the z-block is closed or belongs to native code");
  }

  private void requireMemory() {
    if (memory == null) throw new IllegalStateException(this + " has no memory to send");
  }
}
