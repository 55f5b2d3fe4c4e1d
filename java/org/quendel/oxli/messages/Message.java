package org.quendel.oxli.messages;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.Objects;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;
import org.quendel.oxli.impl.MessageRecord;
import org.quendel.oxli.impl.NumberCodec;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;
import org.quendel.oxli.impl.Utf8String;

/**
 * A message. Each type in {@link MessageType} has a subclass; a message of another type is of this
 * class. There are three kinds of messages:
 *
 * <ul>
 *   <li>A <b>delivered</b> message is usable only on the thread inside {@code onMessage}, and only
 *       until {@code onMessage} returns. Its payload is read-only memory of the gateway. A later
 *       message may be delivered in the same object.
 *   <li>An <b>outgoing</b> message is made by a publisher and is usable until {@link #close} or
 *       until its publisher is closed. Its payload is memory of the gateway.
 *   <li>A <b>copy</b> is made by {@link #copy} and is always usable. Its payload is on the heap.
 * </ul>
 *
 * <p>If a message is not usable, its methods throw {@link IllegalStateException}, except those
 * whose comment says that they can be called at any time. Do not use the buffers of a delivered or
 * outgoing message when it is no longer usable: their memory may be freed, and buffers do not check
 * this. Messages are not thread-safe. Offsets and lengths are in bytes.
 */
public class Message extends MessageRecord implements AutoCloseable {
  private final int type;

  Message(int type) {
    this.type = type;
  }

  /** Returns the type code, such as one of {@link MessageType}. Can be called at any time. */
  public final int getType() {
    return type;
  }

  /**
   * Returns the payload, or null if there is none. The buffer is little-endian, and read-only if
   * the message was delivered. Each call returns the same buffer. The application may change its
   * position, limit and order, which no other method uses.
   *
   * @throws IllegalStateException if the message is not usable
   */
  public final ByteBuffer getData() {
    return view();
  }

  /**
   * Returns the string at the offset, without the zero bytes that pad it to the length. Decodes the
   * bytes as UTF-8.
   *
   * @throws IllegalStateException if the message is not usable or has no payload
   * @throws IndexOutOfBoundsException if the payload is shorter
   */
  public final String getText(int offset, int length) {
    return Utf8String.read(payloadAt(offset, length), offset, length);
  }

  /**
   * Writes a string as UTF-8, padded with zero bytes to the length.
   *
   * @throws IllegalArgumentException if the string is longer than the length, or contains a U+0000
   *     or half of a surrogate pair
   * @throws IllegalStateException if the message is not usable, has no payload, or was delivered
   * @throws IndexOutOfBoundsException if the payload is shorter
   */
  public final void setText(int offset, int length, String text) {
    final ByteBuffer payload = payloadAt(offset, length);
    requireWritable();
    Utf8String.write(payload, offset, length, text,
        () -> length + " bytes at offset " + offset + " of " + this);
  }

  /**
   * Returns the decimal at the offset.
   *
   * @throws OxliException if the gateway cannot decode the bytes
   * @throws IllegalStateException if the message is not usable or has no payload
   * @throws IndexOutOfBoundsException if the offset is outside the payload
   */
  public final BigDecimal getDecimal(int offset) {
    final BigDecimal value = NumberCodec.readDecimal(payloadAt(offset, 1), offset);
    if (value != null) return value;
    throw new OxliException(
        "Message.getDecimal: no decimal at offset " + offset + " of " + this, ResultCode.INTERNAL);
  }

  /**
   * Returns the gateway's dump of the message, for logs. It contains the fields with their names.
   *
   * @throws OxliException if the gateway cannot make it
   * @throws IllegalStateException if the message is not usable, is a copy, or refers to a message
   *     or contains a z-block that a post would refuse
   */
  public final String dump() {
    final byte[] dumped;
    if (owner() != null) {
      dumped = owner().dump(this, getSchemeRef());
    } else {
      requireReadableByGateway();
      dumped = OxliImpl.msg_dump(this, getSchemeRef());
    }
    if (dumped == null) throw Results.failure("Message.dump", this, ResultCode.INTERNAL);
    return new String(dumped, StandardCharsets.UTF_8);
  }

  /**
   * Returns a copy of the same class and content, with its payload on the heap. Any number of
   * threads may read a copy at once. A copy cannot be posted. The bytes of z-blocks are not copied:
   * read them while the original is usable.
   *
   * @throws IllegalStateException if the message is not usable
   */
  public Message copy() {
    return (Message) copyToHeap();
  }

  /**
   * Releases an outgoing message. Does nothing if it is closed, and nothing to delivered messages
   * and copies. Can be called at any time. Inside a post on the same publisher, the memory is freed
   * after that post.
   *
   * @throws OxliException if the gateway reports an error; the message is closed nevertheless
   */
  @Override
  public final void close() {
    if (owner() != null) owner().dispose(this);
  }

  /**
   * Returns the class and the name or type and, if the message is usable, the values that its
   * methods return, without the payload. Can be called at any time.
   */
  @Override
  public final String toString() {
    return getClass().getSimpleName() + label() + (isUsable() ? contents() : "");
  }

  /** Returns the part of {@link #toString} that is always present. Begins with a space. */
  String label() {
    if (getClass() != Message.class) return "";
    final MessageDesc desc = findDesc();
    return desc != null ? ' ' + desc.getName() : " of type 0x" + Integer.toHexString(type);
  }

  /** Returns the part of {@link #toString} for usable messages only. Begins with a comma. */
  String contents() {
    return "";
  }

  private ByteBuffer payloadAt(int offset, int length) {
    final ByteBuffer payload = payload();
    if (payload == null) throw new IllegalStateException(this + " has no payload");
    Objects.checkFromIndexSize(offset, length, payload.capacity());
    return payload;
  }
}
