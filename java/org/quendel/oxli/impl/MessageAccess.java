package org.quendel.oxli.impl;

import java.nio.ByteBuffer;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.MessageDesc;

/**
 * Gives listeners, publishers and fields access to the {@link MessageRecord} of a message. The
 * methods are in this class, because public methods of {@link MessageRecord} would be inherited by
 * the public class {@code Message}.
 */
public final class MessageAccess {
  /** Size in bytes of a z-block's descriptor: the size in 4 bytes, then the address in 8. */
  public static final int DESCRIPTOR_SIZE = Integer.BYTES + Long.BYTES;

  private MessageAccess() {}

  /** Makes a delivered message usable on the calling thread. Called before {@code onMessage}. */
  public static void acquire(MessageRecord message) {
    message.acquire();
  }

  /** Makes a delivered message unusable. Called on the same thread after {@code onMessage}. */
  public static void release(MessageRecord message) {
    message.release();
  }

  /**
   * Makes a message an outgoing message.
   *
   * @param desc the description; null if unknown
   * @param zblockFields the fields of {@code desc} that contain z-blocks, at their offsets in the
   *     payload; null if unknown
   */
  public static void adopt(MessageRecord message, MessageOwner owner, MessageDesc desc,
      FieldDesc[] zblockFields) {
    message.adopt(owner, desc, zblockFields);
  }

  /** Removes the record from an outgoing message, and returns the record's address. */
  public static long detach(MessageRecord message) {
    final long ref = message.getRef();
    message.forgetRecord();
    return ref;
  }

  /** Returns the owner of an outgoing message, or null for a delivered message or a copy. */
  public static MessageOwner ownerOf(MessageRecord message) {
    return message.owner();
  }

  /** Returns the address of the record, or 0. */
  public static long refOf(MessageRecord message) {
    return message.getRef();
  }

  /** Returns {@link MessageRecord#payload}. */
  public static ByteBuffer payloadOf(MessageRecord message) {
    return message.payload();
  }

  /** Returns {@link MessageRecord#findDesc}. */
  public static MessageDesc descOf(MessageRecord message) {
    return message.findDesc();
  }

  /** Calls {@link MessageRecord#requireWritable}. */
  public static void requireWritable(MessageRecord message) {
    message.requireWritable();
  }

  /** Calls {@link MessageRecord#requireReadableByGateway}. */
  public static void requireReadableByGateway(MessageRecord message) {
    message.requireReadableByGateway();
  }

  /** Calls {@link MessageRecord#noteBlock}. */
  public static void noteBlock(MessageRecord message, int offset, ByteBuffer memory) {
    message.noteBlock(offset, memory);
  }
}
