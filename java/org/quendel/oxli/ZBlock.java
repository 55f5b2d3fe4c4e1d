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
 * A block of bytes that a message refers to instead of containing it, read and written in place: no
 * block is ever copied. Made by {@link Environment#newZBlock(ByteBuffer)} over memory to send, or
 * by {@link Environment#newZBlock()} to receive; one object serves any number of messages.
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
 * <p>Memory to send must not change while a post is in progress; afterwards the gateway has a copy.
 * A mapped file is memory too: the bytes that a post reads must exist, so a file that another
 * process truncates meanwhile ends the virtual machine with a bus error in the gateway. Received
 * bytes are the gateway's and read-only: they may be used as long as the message that refers to
 * them, and are sent on as a copy.
 *
 * <p>A block that is not closed lives until its environment is closed. Thread-safe: one thread at a
 * time is inside.
 */
public final class ZBlock extends NativeRef implements AutoCloseable {
  private final Environment environment;
  private final Origin origin = new Origin();
  // Guarded by this, as is the handle that the superclass has.
  private boolean closed;
  private ByteBuffer memory; // the application's, to send; null in a block to receive
  private Message source; // of a received block
  private ByteBuffer payload; // of the source when the block was received
  private ByteBuffer data; // the bytes, or null

  ZBlock(Environment environment) {
    this.environment = environment;
  }

  /** Called by native code that owns the block: this object releases nothing. */
  ZBlock(long handle) {
    this(null);
    closed = true;
  }

  /** Registers the block; binds it to the memory unless that is null. */
  synchronized void create(ByteBuffer newMemory) {
    // First, inside the lock: closing the environment then waits for the binding.
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
    showMemory(newMemory);
  }

  /**
   * Returns the bytes, little-endian: those to send, or those received; null before the first were
   * received. Every call returns the same buffer until the bytes are others.
   *
   * @throws IllegalStateException if the block is closed, or its message may no longer be used
   */
  public synchronized ByteBuffer getData() {
    requireOpen();
    if (source != null && MessageAccess.payloadOf(source) != payload) {
      throw new IllegalStateException("the message of " + this + " may no longer be used");
    }
    return data;
  }

  /**
   * Binds the block to other memory to send. Messages whose field was set before keep the old one.
   *
   * @param newMemory a direct buffer: the bytes from its position to its limit
   * @throws IllegalArgumentException if the buffer is not direct
   * @throws IllegalStateException if the block was made to receive or is closed
   */
  public synchronized void rebind(ByteBuffer newMemory) {
    final ByteBuffer slice = memoryOf(newMemory);
    requireOpen();
    requireMemory(); // the descriptor of a received block is in a message
    Results.check("ZBlock.rebind", this, OxliImpl.zblock_rebind(slice, getRef()));
    showMemory(slice);
  }

  /**
   * Releases the memory. Messages that refer to it keep it alive.
   *
   * @throws OxliException if native code reports an error; the block is closed all the same
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
      // Last: the environment waits for the blocks that it knows.
      environment.forget(this);
    }
  }

  /** Returns whether the block is to send or to receive, and the number of its bytes. */
  @Override
  public synchronized String toString() {
    if (closed) return "closed z-block";
    return (memory != null ? "z-block to send" : "z-block to receive")
        + (data != null ? ", " + data.capacity() + " bytes" : "");
  }

  /** Returns the memory of a buffer for native code. */
  static ByteBuffer memoryOf(ByteBuffer buffer) {
    Objects.requireNonNull(buffer, "buffer");
    if (!buffer.isDirect()) throw new IllegalArgumentException(buffer + " is not direct");
    return buffer.slice();
  }

  /**
   * Reads 8 bytes at the address. Z-blocks are the one way in which Java reads memory by address.
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

  /** Adds the block. */
  void dump(Dump.Groups groups) {
    // Without the lock: a block that is being made or closed has no memory.
    groups.add(memory == null ? "z-block without memory to send" : "z-block to send", origin);
  }

  /** Binds the block to the descriptor that the field has in a message's payload. */
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

  /** Writes the descriptor at the offset of a message's payload; returns the memory. */
  synchronized ByteBuffer send(ByteBuffer bytes, int offset) {
    requireOpen();
    requireMemory();
    if (OxliImpl.zblock_unwrap(bytes, getRef(), offset) != 0) {
      throw Results.failure("FieldDesc.setZBlock", this, ResultCode.INTERNAL);
    }
    return memory;
  }

  /** Called by native code with the received bytes; null if they cannot be a buffer. */
  void setData(ByteBuffer newData) {
    data = newData == null ? null : newData.order(ByteOrder.LITTLE_ENDIAN);
  }

  private void showMemory(ByteBuffer newMemory) {
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
