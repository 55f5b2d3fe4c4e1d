package org.quendel.oxli.messages;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import java.util.Objects;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.MessageOwner;
import org.quendel.oxli.impl.NativeRef;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * A message; of this very class when its type has no class of its own. There are three kinds:
 *
 * <ul>
 *   <li>A <b>delivered</b> message is lent to {@code onMessage} and ends with it. Its object is
 *       used again for the next message of its kind, and its payload lies in memory of the
 *       gateway's. Afterwards reading the payload throws {@link IllegalStateException}; what else
 *       the object says may already be the next message's.
 *   <li>An <b>outgoing</b> message comes from a publisher, is filled in place and lives until
 *       {@link #close}, its publisher's release included.
 *   <li>A <b>copy</b> made by {@link #copy} lies on the heap and lives as long as it is referenced.
 * </ul>
 *
 * <p>Never keep a buffer or a part of one beyond the life of its message: the bytes may be gone,
 * and nothing can tell. Never write into a delivered message's buffer: others may be receiving the
 * same bytes. Messages are not thread-safe. Offsets and lengths are in bytes.
 */
public class Message extends NativeRef implements AutoCloseable, Cloneable {
  private static final int MADE_BY_GATEWAY = 0;
  private static final int MADE_ON_HEAP = 1;

  // More than any encoded decimal takes.
  private static final int DECIMAL_ROOM = 64;
  private static final byte[] ZEROS = new byte[DECIMAL_ROOM];

  static {
    MessageAccess.install(new Access());
  }

  private final int type;
  private int createType = MADE_BY_GATEWAY;
  private long schemeRef;
  private ByteBuffer data;
  private MessageOwner owner;
  private ByteBuffer decimalRoom; // of messages that have a record
  private int life; // counts the records that the object has had
  private Map<Integer, Block> blocks; // that the payload points to, by offset; or null

  Message(int type) {
    this.type = type;
  }

  /** The gateway's type code, mostly one of {@link MessageType}. */
  public final int getType() {
    return type;
  }

  /**
   * The payload, little-endian; null for a message without one. Every call gives the same buffer:
   * its position and limit are the caller's to move, and the methods here that take an offset do
   * not depend on its position.
   *
   * @throws IllegalStateException when the message has ended or has been closed
   */
  public final ByteBuffer getData() {
    if (!isAlive()) throw ended();
    return data;
  }

  /**
   * The text at the offset, without the zeros that pad it to the length.
   *
   * @throws IllegalStateException when there is no payload
   * @throws IndexOutOfBoundsException when the payload is shorter
   */
  public final String getText(int offset, int length) {
    // Checked before anything of that length is made.
    final ByteBuffer field = payloadAt(offset, length);
    final byte[] bytes = new byte[length];
    field.get(bytes);
    int end = 0;
    while (end < length && bytes[end] != 0) ++end;
    return new String(bytes, 0, end, StandardCharsets.UTF_8);
  }

  /**
   * Stores a text as UTF-8, padded with zeros to the length.
   *
   * @throws IllegalArgumentException when the text is longer
   * @throws IllegalStateException when there is no payload, or the message is a delivered one
   * @throws IndexOutOfBoundsException when the payload is shorter
   */
  public final void setText(int offset, int length, String text) {
    final byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
    final ByteBuffer field = payloadAt(offset, length);
    if (isDelivered()) throw new IllegalStateException("a delivered message is not written");
    if (bytes.length > length) {
      throw new IllegalArgumentException(bytes.length + " bytes do not fit into " + length);
    }
    field.put(Arrays.copyOf(bytes, length));
  }

  /**
   * The decimal at the offset.
   *
   * @throws OxliException when the gateway finds none there
   * @throws IllegalStateException when there is no payload
   * @throws IndexOutOfBoundsException when the offset is outside the payload
   */
  public final BigDecimal getDecimal(int offset) {
    ByteBuffer field = payloadAt(offset, 1);
    field.limit(field.capacity());
    if (!field.isDirect() || field.remaining() < DECIMAL_ROOM) field = padded(field);
    // Sliced, because native code takes the address of a buffer's first byte.
    final BigDecimal value = OxliImpl.bcd_get(field.slice());
    if (value == null) throw Results.failure("Message.getDecimal", ResultCode.INTERNAL);
    return value;
  }

  /**
   * The gateway's rendering of the message, fields by name, for logs and people.
   *
   * @throws OxliException when the gateway gives none
   * @throws IllegalStateException for a copy, which has no record, and for a message that has ended
   *     or has been closed
   */
  public final String dump() {
    final byte[] text = owner == null ? dumpDelivered() : owner.dump(this, schemeRef);
    if (text == null) throw Results.failure("Message.dump", ResultCode.INTERNAL);
    return new String(text, StandardCharsets.UTF_8);
  }

  /**
   * A message of the same class and content that can be kept: its payload is on the heap. It can be
   * read by any thread that gets it safely, not posted. Blocks of z-block fields are not copied
   * with it: read them while the original lives.
   *
   * @throws IllegalStateException when the message has ended or has been closed
   */
  public Message copy() {
    final ByteBuffer payload = getData();
    final Message copy;
    try {
      copy = (Message) clone();
    } catch (CloneNotSupportedException e) {
      throw new AssertionError(e);
    }
    copy.set(0);
    copy.schemeRef = 0;
    copy.owner = null;
    copy.decimalRoom = null;
    copy.blocks = null;
    copy.setAllocCreateType();
    copy.setData(payload == null ? null : ByteBuffer.allocate(payload.capacity())
        .put(payload.duplicate().clear()).clear());
    return copy;
  }

  /**
   * Gives an outgoing message back to its publisher; harmless when that has happened, and without
   * effect on delivered messages and copies.
   *
   * @throws OxliException when the gateway reports an error; the message is closed all the same
   */
  @Override
  public final void close() {
    if (owner != null) owner.dispose(this);
  }

  /** Whether a listener lends the message, or did: it is neither outgoing nor a copy. */
  public final boolean isDelivered() {
    return owner == null && createType == MADE_BY_GATEWAY;
  }

  /** 0: the record was made by the gateway; 1: a copy on the heap. Also called by native code. */
  public final int getCreateType() {
    return createType;
  }

  void setAllocCreateType() {
    createType = MADE_ON_HEAP;
  }

  long getSchemeRef() {
    return schemeRef;
  }

  void setSchemeRef(long ref) {
    schemeRef = ref;
  }

  void setRef(long ref) {
    set(ref);
  }

  /** Publishers know their messages by {@link MessageOwner}; handles may be used again. */
  void setPublisherOwner(long publisher) {}

  void setData(ByteBuffer payload) {
    data = payload == null ? null : payload.order(ByteOrder.LITTLE_ENDIAN);
  }

  /** Called when the record is taken away: also forgets what the next one may leave unsaid. */
  void forgetRecord() {
    set(0);
    ++life;
    data = null;
    blocks = null;
  }

  final boolean isOutgoing() {
    return owner != null;
  }

  final int getLife() {
    return life;
  }

  /** The descriptor at the offset, whatever the application made of the buffer's limit and order. */
  private Block blockAt(int offset, ByteBuffer memory) {
    final ByteBuffer bytes = data.duplicate().clear().order(ByteOrder.LITTLE_ENDIAN);
    return new Block(bytes.getInt(offset), bytes.getLong(offset + Integer.BYTES), memory);
  }

  /** A descriptor in the payload, and the memory it points to. */
  private static final class Block {
    final int size;
    final long address;
    final ByteBuffer memory;

    Block(int size, long address, ByteBuffer memory) {
      this.size = size;
      this.address = address;
      this.memory = memory;
    }
  }

  /**
   * The bytes that are left, followed by zeros: native code reads as far as an encoding reaches,
   * which only the gateway knows.
   */
  private ByteBuffer padded(ByteBuffer field) {
    // A copy may be read by several threads.
    final boolean shared = createType == MADE_ON_HEAP;
    if (!shared && decimalRoom == null) decimalRoom = ByteBuffer.allocateDirect(2 * DECIMAL_ROOM);
    final ByteBuffer room = shared ? ByteBuffer.allocateDirect(2 * DECIMAL_ROOM) : decimalRoom;
    field.limit(Math.min(field.limit(), field.position() + DECIMAL_ROOM));
    room.clear();
    room.put(field).put(ZEROS);
    return room.clear();
  }

  private boolean isAlive() {
    return getRef() != 0 || createType == MADE_ON_HEAP;
  }

  private static IllegalStateException ended() {
    return new IllegalStateException("the message has ended or has been closed");
  }

  private ByteBuffer payloadAt(int offset, int length) {
    final ByteBuffer payload = getData();
    if (payload == null) throw new IllegalStateException("the message has no payload");
    Objects.checkFromIndexSize(offset, length, payload.capacity());
    return payload.duplicate().clear().limit(offset + length).position(offset);
  }

  private byte[] dumpDelivered() {
    if (getRef() == 0) throw ended();
    return OxliImpl.msg_dump(this, schemeRef);
  }

  private static final class Access extends MessageAccess {
    @Override
    public long detach(Message message) {
      final long ref = message.getRef();
      message.forgetRecord();
      return ref;
    }

    @Override
    public boolean isAttached(Message message) {
      return message.getRef() != 0;
    }

    @Override
    public void adopt(Message message, MessageOwner owner) {
      message.owner = owner;
    }

    @Override
    public MessageOwner ownerOf(Message message) {
      return message.owner;
    }

    @Override
    public MessageDesc descOf(Message message) {
      return message instanceof AbstractDataMessage ? ((AbstractDataMessage) message).findDesc()
          : null;
    }

    @Override
    public void keep(Message message, int offset, ByteBuffer memory) {
      if (message.blocks == null) message.blocks = new HashMap<>();
      message.blocks.put(offset, message.blockAt(offset, memory));
    }

    @Override
    public boolean isKept(Message message, int offset) {
      if (message.data == null || offset > message.data.capacity() - DESCRIPTOR_SIZE) return true;
      final Block found = message.blockAt(offset, null);
      final Block kept = message.blocks == null ? null : message.blocks.get(offset);
      return found.size == 0
          || kept != null && kept.size == found.size && kept.address == found.address;
    }

    @Override
    public boolean isReferenceAlive(DataMessage message) {
      return message.isReferenceAlive();
    }
  }
}
