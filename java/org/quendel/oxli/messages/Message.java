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
 * A message. Most types of messages have a class; a message of another type is of this one. There
 * are three kinds:
 *
 * <ul>
 *   <li>A <b>delivered</b> message may be used by the thread inside {@code onMessage} until {@code
 *       onMessage} returns. On other threads and later its methods throw {@link
 *       IllegalStateException}, except those that say that they are always possible. Its payload
 *       is memory of the gateway and read-only. The object is used again for the next message of
 *       its kind.
 *   <li>An <b>outgoing</b> message is made by a publisher, filled in place, and lives until {@link
 *       #close} or until its publisher is closed. Its payload is memory of the gateway.
 *   <li>A <b>copy</b> made by {@link #copy} lives on the heap as long as it is referenced.
 * </ul>
 *
 * <p>The buffers of a delivered or outgoing message must not be used after the message's life:
 * their memory may be freed, which a buffer cannot know. Messages are not thread-safe. Offsets and
 * lengths are in bytes.
 */
public class Message extends MessageRecord implements AutoCloseable {
  private final int type;

  Message(int type) {
    this.type = type;
  }

  /** Returns the type code, mostly one of {@link MessageType}. Always possible. */
  public final int getType() {
    return type;
  }

  /**
   * Returns the payload, or null if there is none: little-endian, and read-only if the message was
   * delivered. Every call returns the same buffer. Its position, limit and order are the
   * application's; no other method depends on them.
   *
   * @throws IllegalStateException if the message is closed or may not be used here and now
   */
  public final ByteBuffer getData() {
    return view();
  }

  /**
   * Returns the string at the offset, without the zero bytes that pad it to the length: its bytes
   * read as UTF-8.
   *
   * @throws IllegalStateException if there is no payload
   * @throws IndexOutOfBoundsException if the payload is shorter
   */
  public final String getText(int offset, int length) {
    return Utf8String.read(payloadAt(offset, length), offset, length);
  }

  /**
   * Writes a string as UTF-8, padded with zero bytes to the length.
   *
   * @throws IllegalArgumentException if the string is longer, has a U+0000 or half of a surrogate
   *     pair
   * @throws IllegalStateException if there is no payload, or the message was delivered
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
   * @throws OxliException if the gateway finds none there
   * @throws IllegalStateException if there is no payload
   * @throws IndexOutOfBoundsException if the offset is outside the payload
   */
  public final BigDecimal getDecimal(int offset) {
    final BigDecimal value = NumberCodec.readDecimal(payloadAt(offset, 1), offset);
    if (value != null) return value;
    throw new OxliException(
        "Message.getDecimal: no decimal at offset " + offset + " of " + this, ResultCode.INTERNAL);
  }

  /**
   * Returns the gateway's dump of the message, for logs: fields by name.
   *
   * @throws OxliException if the gateway gives none
   * @throws IllegalStateException if the message is a copy, which has no record, or a post of it
   *     would be refused
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
   * Returns a message of the same class and content to keep or to pass on: its payload is on the
   * heap. Any number of threads may read it at once; it cannot be posted. Blocks of z-block fields
   * are not copied: read them while the original lives.
   *
   * @throws IllegalStateException if the message is closed or may not be used here and now
   */
  public Message copy() {
    return (Message) copyToHeap();
  }

  /**
   * Releases an outgoing message; does nothing the second time, and nothing to other messages.
   * Always possible. Inside a post on the same publisher the release waits for the end of that
   * post.
   *
   * @throws OxliException if the gateway reports an error; the message is closed all the same
   */
  @Override
  public final void close() {
    if (owner() != null) owner().dispose(this);
  }

  /**
   * Returns the class and, if the message may be used here and now, what its methods return besides
   * the payload. Always possible.
   */
  @Override
  public final String toString() {
    return getClass().getSimpleName() + label() + (isUsable() ? contents() : "");
  }

  /** What {@link #toString} says at any time, with a space before it. */
  String label() {
    if (getClass() != Message.class) return "";
    final MessageDesc desc = findDesc();
    return desc != null ? ' ' + desc.getName() : " of type 0x" + Integer.toHexString(type);
  }

  /** What {@link #toString} says of a message that may be used, with a comma before it. */
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
