package org.quendel.oxli.impl;

import java.nio.ByteBuffer;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;

/**
 * What listeners and publishers do with messages and applications must not. {@link Message}
 * installs the only instance when it is initialised, hence before any message exists.
 */
public abstract class MessageAccess {
  /** Bytes of a z-block's descriptor: its size, then its address. */
  public static final int DESCRIPTOR_SIZE = Integer.BYTES + Long.BYTES;

  private static volatile MessageAccess installed;

  /** For the message class. */
  protected MessageAccess() {}

  /** Called once, by the message class. */
  public static void install(MessageAccess access) {
    installed = access;
  }

  /** REQUIRES: a message exists. */
  public static MessageAccess get() {
    return installed;
  }

  /** Takes the record away from the message; later uses of its payload fail. Gives the address. */
  public abstract long detach(Message message);

  /** Whether the message has a record now. */
  public abstract boolean isAttached(Message message);

  /** Makes the owner the one through which the message is closed and rendered. */
  public abstract void adopt(Message message, MessageOwner owner);

  /** Null for delivered messages and copies. */
  public abstract MessageOwner ownerOf(Message message);

  /** The description of the message; null when none is known. */
  public abstract MessageDesc descOf(Message message);

  /** Keeps memory that the payload points to at the offset, until the next one or the end. */
  public abstract void keep(Message message, int offset, ByteBuffer memory);

  /** Whether the descriptor at the offset is empty or that of memory which the message keeps. */
  public abstract boolean isKept(Message message, int offset);

  /** Whether the message refers to none, or to one that has not ended since. */
  public abstract boolean isReferenceAlive(DataMessage message);
}
