package org.quendel.oxli.impl;

import java.nio.ByteBuffer;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.MessageDesc;

/**
 * What listeners, publishers and fields do with the {@link MessageRecord} of a message. A class of
 * its own, because messages would inherit public methods of that one.
 */
public final class MessageAccess {
  /** Bytes of a z-block's descriptor: its size in 4, then its address in 8. */
  public static final int DESCRIPTOR_SIZE = Integer.BYTES + Long.BYTES;

  private MessageAccess() {}

  /** Called on the thread that is about to enter {@code onMessage} with the message. */
  public static void acquire(MessageRecord message) {
    message.acquire();
  }

  /** Called on the same thread when {@code onMessage} has returned. */
  public static void release(MessageRecord message) {
    message.release();
  }

  /**
   * Makes it an outgoing message.
   *
   * @param desc null if unknown
   * @param zblockFields the fields of {@code desc} that contain z-blocks, at their offsets in the
   *     payload; null if unknown
   */
  public static void adopt(MessageRecord message, MessageOwner owner, MessageDesc desc,
      FieldDesc[] zblockFields) {
    message.adopt(owner, desc, zblockFields);
  }

  /** Ends an outgoing message's use of its record, and returns the record's address. */
  public static long detach(MessageRecord message) {
    final long ref = message.getRef();
    message.forgetRecord();
    return ref;
  }

  /** Returns the publisher's side of an outgoing message, else null. */
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
