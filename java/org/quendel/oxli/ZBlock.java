package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Objects;
import org.quendel.oxli.impl.NativeRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.messages.Message;

/**
 * A block of bytes that a message refers to instead of carrying it, read and written in place: no
 * block is ever copied. Made by {@link Environment#newZBlock(ByteBuffer)} over memory to send, or by
 * {@link Environment#newZBlock()} to receive; one object serves any number of messages.
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
 * <p>Sent memory must not change while a post is in progress; the gateway has its own copy of it
 * after that. Received bytes are the gateway's: they end with their message, as its payload does,
 * must not be written to, and cannot be sent on without a copy. A block that is not closed is kept
 * until its environment is. May be used by any thread; one at a time is inside.
 */
public final class ZBlock extends NativeRef implements AutoCloseable {
  private final Environment environment;
  // Guarded by this, as is the handle that the superclass holds.
  private boolean closed;
  private ByteBuffer memory; // of the application; null when the block was received
  private Message source; // of a received block
  private ByteBuffer payload; // what the source showed then
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
    // First, with the lock held: closing the environment then waits for the binding.
    environment.register(this);
    if (newMemory == null) return;
    boolean made = false;
    try {
      Results.check("Environment.newZBlock", OxliImpl.zblock_new(this, newMemory, this));
      made = true;
    } finally {
      if (!made) close();
    }
    showMemory(newMemory);
  }

  /**
   * The bytes, little-endian: those to send, or those received; null before the first were. Every
   * call gives the same buffer until the next ones are.
   *
   * @throws IllegalStateException when the block has been closed, or its message has ended
   */
  public synchronized ByteBuffer getData() {
    requireOpen();
    if (source != null && source.getData() != payload) {
      throw new IllegalStateException("the message of the block has ended");
    }
    return data;
  }

  /**
   * Makes the block one of other memory. Messages whose field was set before keep the old one.
   *
   * @param newMemory a direct buffer: the bytes from its position to its limit
   * @throws IllegalArgumentException when the buffer is not direct
   * @throws IllegalStateException when the block was received or has been closed
   */
  public synchronized void rebind(ByteBuffer newMemory) {
    final ByteBuffer slice = memoryOf(newMemory);
    requireOpen();
    // The descriptor of a received block lies in a message.
    if (memory == null) throw new IllegalStateException("the block is not one to send");
    Results.check("ZBlock.rebind", OxliImpl.zblock_rebind(slice, getRef()));
    showMemory(slice);
  }

  /**
   * Lets the memory go. Messages that refer to it keep it alive.
   *
   * @throws OxliException when native code reports an error; the block is closed all the same
   */
  @Override
  public synchronized void close() {
    if (closed) return;
    closed = true;
    forget();
    final long handle = getRef();
    set(0);
    try {
      Results.check("ZBlock.close", OxliImpl.zblock_destroy(handle));
    } finally {
      // Last: the environment waits for the blocks that it knows.
      environment.forget(this);
    }
  }

  /** What native code may take as a block; refuses other buffers. */
  static ByteBuffer memoryOf(ByteBuffer buffer) {
    Objects.requireNonNull(buffer, "buffer");
    if (!buffer.isDirect()) throw new IllegalArgumentException("the buffer is not direct");
    return buffer.slice();
  }

  /** Binds to the descriptor at the offset of a message's payload. */
  synchronized void receive(Message from, ByteBuffer bytes, int offset) {
    requireOpen();
    if (!from.isDelivered()) throw new IllegalStateException("only delivered messages have blocks");
    if (memory != null) throw new IllegalStateException("the block is one to send");
    forget();
    OxliImpl.zblock_wrap(bytes, this, this, offset);
    if (data == null) {
      throw new OxliException("FieldDesc.getZBlock: a block of "
          + Integer.toUnsignedString(bytes.getInt(offset)) + " bytes cannot be read");
    }
    source = from;
    payload = from.getData();
  }

  /** Writes the descriptor to the offset of a message's payload; gives the memory to keep. */
  synchronized ByteBuffer send(ByteBuffer bytes, int offset) {
    requireOpen();
    if (memory == null) throw new IllegalStateException("the block has no bytes of its own");
    if (OxliImpl.zblock_unwrap(bytes, getRef(), offset) != 0) {
      throw Results.failure("FieldDesc.setZBlock", ResultCode.INTERNAL);
    }
    return memory;
  }

  /** Called by native code with what it found; null when that cannot be a buffer. */
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
    if (closed) {
      throw new IllegalStateException("the block has been closed or belongs to native code");
    }
  }
}
