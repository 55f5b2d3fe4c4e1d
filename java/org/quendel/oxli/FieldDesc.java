package org.quendel.oxli;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.stream.IntStream;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;

/**
 * One field of a {@link MessageDesc}: what it is, and how to read and write it in a message of that
 * description. Immutable; made by native code. Look fields up once, when the scheme is known, and
 * use the objects for every message of that opening:
 *
 * <pre>{@code
 * FieldDesc volume = scheme.getMessage("quote").getField("volume");
 * ...
 * long traded = volume.getLong(message);
 * }</pre>
 *
 * <p>The type text says which methods fit: {@code i...} and {@code u...} of 1, 2, 4 or 8 bytes are
 * integers, {@code c...} is a text of fixed size, {@code d} a decimal, {@code z} a z-block; a field
 * that has a {@link #getMessage} is nested. Every method that takes a message throws
 *
 * <ul>
 *   <li>{@link IllegalArgumentException} when the field is of another type,
 *   <li>{@link IndexOutOfBoundsException} when it would leave the payload, and
 *   <li>{@link IllegalStateException} when the message has ended, was closed or has no payload, and
 *       when a delivered one would be written.
 * </ul>
 *
 * <p>Whether the message is one of this description is checked for z-blocks only, whose bytes would
 * be taken for an address. A field belongs to the opening that its scheme came with: the next one may
 * lay messages out otherwise.
 */
public final class FieldDesc {
  private static final int DECIMAL_SIZE = Long.BYTES + Byte.BYTES;
  static final int NOWHERE = -1;

  private enum Kind {
    INTEGER("an integer"),
    TEXT("a text"),
    DECIMAL("a decimal"),
    ZBLOCK("a z-block"),
    NESTED("a nested message"),
    OTHER("of a known type");

    private final String text;

    Kind(String text) {
      this.text = text;
    }
  }

  private final long number;
  private final String name;
  private final String description;
  private final String type;
  private final int size;
  private final int offset;
  private final ByteBuffer value;
  private final List<FieldValueDesc> values;
  private final Map<String, FieldValueDesc> valuesByName;
  private final MessageDesc message;
  private final Kind kind;
  private int position = NOWHERE; // in the null map; fields of nested messages have none

  FieldDesc(long number, String name, String description, String type, int size, int offset,
      ByteBuffer value, FieldValueDesc[] values, MessageDesc message) {
    this.number = number;
    this.name = name;
    this.description = description;
    this.type = type;
    this.size = size;
    this.offset = offset;
    this.value = Descriptions.bytes(value);
    this.values = Descriptions.list(values);
    this.valuesByName = Descriptions.byName(values, FieldValueDesc::getName);
    this.message = message;
    this.kind = kindOf(type, size, message);
    if (message != null) message.markNested();
  }

  /** A nested message's field at its place in the outer one. */
  private FieldDesc(FieldDesc inner, int base) {
    number = inner.number;
    name = inner.name;
    description = inner.description;
    type = inner.type;
    size = inner.size;
    offset = base + inner.offset;
    value = inner.value;
    values = inner.values;
    valuesByName = inner.valuesByName;
    message = inner.message;
    kind = inner.kind;
  }

  private static Kind kindOf(String type, int size, MessageDesc message) {
    if (message != null) return Kind.NESTED;
    switch (type == null || type.isEmpty() ? '\0' : type.charAt(0)) {
      case 'i':
      case 'u':
        return size == 1 || size == 2 || size == 4 || size == 8 ? Kind.INTEGER : Kind.OTHER;
      case 'c':
        return Kind.TEXT;
      case 'd':
        return Kind.DECIMAL;
      case 'z':
        return size == MessageAccess.DESCRIPTOR_SIZE ? Kind.ZBLOCK : Kind.OTHER;
      default:
        return Kind.OTHER;
    }
  }

  /** The gateway's number of the field, unsigned 32-bit. */
  public long getNumber() {
    return number;
  }

  /** The field's name. */
  public String getName() {
    return name;
  }

  /** Text for people. */
  public String getDescription() {
    return description;
  }

  /** The gateway's type text: {@code i...} is a signed integer, {@code u...} an unsigned one. */
  public String getType() {
    return type;
  }

  /** Size in bytes. */
  public int getSize() {
    return size;
  }

  /** Bytes from the start of the payload; in a nested message's own description, from its start. */
  public int getOffset() {
    return offset;
  }

  /** The field's default, {@link #getSize} bytes, read-only and little-endian; or null. */
  public ByteBuffer getValue() {
    return value;
  }

  /** Named values of the field, unmodifiable. */
  public List<FieldValueDesc> getValues() {
    return values;
  }

  /**
   * A named value of the field.
   *
   * @throws NoSuchElementException when there is none of that name
   */
  public FieldValueDesc getValue(String valueName) {
    return Descriptions.get(valuesByName, valueName, "field", name, "value");
  }

  /** The nested message, or null. Its fields count their offsets from its own start. */
  public MessageDesc getMessage() {
    return message;
  }

  /**
   * A field of the nested message at its place in the outer one: to be used with messages of the
   * description that this field is of. A new object each time.
   *
   * @throws NoSuchElementException when there is none of that name, or no nested message
   */
  public FieldDesc getField(String fieldName) {
    if (message == null) {
      throw new NoSuchElementException("field " + name + " is no nested message: no " + fieldName);
    }
    return new FieldDesc(message.getField(fieldName), offset);
  }

  /**
   * The value of an integer, of the sign that its type says. Unsigned ones of 8 bytes come as their
   * bits; see {@link Long#toUnsignedString(long)}. Allocates nothing, unless the application has
   * changed limit or order of the payload's buffer.
   */
  public long getLong(Message from) {
    return integerAt(payload(from, Kind.INTEGER), offset);
  }

  /**
   * Writes an integer; see {@link #getLong}.
   *
   * @throws IllegalArgumentException also when the field is too narrow for the value or has no sign
   */
  public void setLong(Message to, long newValue) {
    final ByteBuffer data = writable(to, Kind.INTEGER);
    final long kept = newValue << spareBits();
    if ((isUnsigned() ? kept >>> spareBits() : kept >> spareBits()) != newValue) {
      throw new IllegalArgumentException(newValue + " does not fit into " + this);
    }
    putInteger(data, newValue);
  }

  /** The name of the value that an integer field has, or null when that value has none. */
  public String getValueName(Message from) {
    final long found = getLong(from);
    for (int i = 0; i < values.size(); ++i) {
      final FieldValueDesc named = values.get(i);
      if (hasBytes(named) && integerAt(named.getValue(), 0) == found) return named.getName();
    }
    return null;
  }

  /**
   * Writes an integer by its name.
   *
   * @throws NoSuchElementException when the field has no value of that name
   */
  public void setValueName(Message to, String valueName) {
    final FieldValueDesc named = getValue(valueName);
    final ByteBuffer data = writable(to, Kind.INTEGER);
    if (!hasBytes(named)) throw new NoSuchElementException(valueName + " has no value in " + this);
    putInteger(data, integerAt(named.getValue(), 0));
  }

  /**
   * The text, without the zeros that pad it: its bytes read as UTF-8, the standard one. For another
   * encoding take the {@link #getBytes bytes}.
   */
  public String getText(Message from) {
    payload(from, Kind.TEXT);
    return from.getText(offset, size);
  }

  /**
   * Writes a text as UTF-8, padded with zeros.
   *
   * @throws IllegalArgumentException also when the text is longer than the field
   */
  public void setText(Message to, String text) {
    payload(to, Kind.TEXT);
    to.setText(offset, size, text);
  }

  /**
   * The decimal, as the gateway reads it.
   *
   * @throws OxliException when the gateway finds none there
   */
  public BigDecimal getDecimal(Message from) {
    payload(from, Kind.DECIMAL);
    return from.getDecimal(offset);
  }

  /**
   * Writes a decimal: the unscaled value as 8 bytes, then the scale as one. The gateway's library
   * only reads decimals, so it is asked to read this one back.
   *
   * @throws IllegalArgumentException also when the gateway does not read the same value and scale;
   *     the field is as it was then
   */
  public void setDecimal(Message to, BigDecimal decimal) {
    final ByteBuffer data = writable(to, Kind.DECIMAL);
    final boolean holds = size == DECIMAL_SIZE && decimal.unscaledValue().bitLength() < Long.SIZE
        && decimal.scale() == (byte) decimal.scale();
    if (!holds || !storeDecimal(to, data, decimal)) {
      throw new IllegalArgumentException(decimal + " does not fit into " + this);
    }
  }

  private boolean storeDecimal(Message to, ByteBuffer data, BigDecimal decimal) {
    final long oldMantissa = data.getLong(offset);
    final byte oldScale = data.get(offset + Long.BYTES);
    boolean stored = false;
    try {
      data.putLong(offset, decimal.unscaledValue().longValue());
      data.put(offset + Long.BYTES, (byte) decimal.scale());
      stored = decimal.equals(to.getDecimal(offset));
    } catch (OxliException e) {
      // Not a decimal of the gateway's: as good as another one.
    } finally {
      if (!stored) data.putLong(offset, oldMantissa).put(offset + Long.BYTES, oldScale);
    }
    return stored;
  }

  /**
   * The nested message's bytes, to be read and written in place: a view of the payload that ends
   * with the message, little-endian. Its fields have names as well: {@link #getField}.
   */
  public ByteBuffer getNested(Message in) {
    return slice(payload(in, Kind.NESTED));
  }

  /** The bytes of a field of any type, as {@link #getNested} gives those of a nested message. */
  public ByteBuffer getBytes(Message in) {
    return slice(payload(in, kind));
  }

  /**
   * Points a z-block, one made to receive, at the block of bytes that the field refers to, without
   * copying them. They can be read as long as the message lasts; see {@link ZBlock}.
   *
   * @throws IllegalArgumentException also when the message's own description has no z-block there
   * @throws IllegalStateException also when the message is not a delivered one, or the z-block has
   *     memory of its own to send or has been closed
   * @throws OxliException when the block is larger than a buffer can be, or the field is damaged
   */
  public void getZBlock(Message from, ZBlock block) {
    block.receive(from, blockPayload(from), offset);
  }

  /**
   * Makes the field of an outgoing message refer to the z-block's bytes. A post sends them as they
   * are then. The message keeps their memory alive until the field is set again or the message is
   * closed, whatever becomes of the z-block; a later {@link ZBlock#rebind} does not reach it. A post
   * refuses what anything else has written there.
   *
   * @throws IllegalArgumentException also when the message's own description has no z-block there
   * @throws IllegalStateException also when the message is not an outgoing one, or the z-block has
   *     no bytes of its own to send
   */
  public void setZBlock(Message to, ZBlock block) {
    final ByteBuffer data = blockPayload(to);
    if (MessageAccess.get().ownerOf(to) == null) {
      throw new IllegalStateException("only outgoing messages refer to blocks of the application");
    }
    MessageAccess.get().keep(to, offset, block.send(data, offset));
  }

  /**
   * Whether the field is null in a row; false when the row has no null map.
   *
   * @throws IllegalArgumentException when the field is a nested message's, which has no flag
   */
  public boolean isNull(StreamDataMessage row) {
    row.getData(); // throws when the row has ended
    return row.isNull(flag());
  }

  /**
   * Marks the field of an outgoing row as null or not.
   *
   * @throws IllegalArgumentException when the field is a nested message's, which has no flag
   * @throws IllegalStateException when the row has no null map
   */
  public void setNull(StreamDataMessage row, boolean isNull) {
    requireWritable(row);
    row.setNull(flag(), isNull);
  }

  /** Name, type and place. */
  @Override
  public String toString() {
    return "field " + name + " (" + type + ", " + size + " bytes at " + offset + ')';
  }

  /** Called by the message's description: the position in the null map. */
  void place(int newPosition) {
    position = newPosition;
  }

  int getPosition() {
    return position;
  }

  private int flag() {
    if (position != NOWHERE) return position;
    throw new IllegalArgumentException(this + " is a nested message's and has no null flag");
  }

  private boolean isUnsigned() {
    return type.charAt(0) == 'u';
  }

  private long integerAt(ByteBuffer data, int at) {
    final boolean unsigned = isUnsigned();
    switch (size) {
      case 1:
        return unsigned ? data.get(at) & 0xffL : data.get(at);
      case 2:
        return unsigned ? data.getShort(at) & 0xffffL : data.getShort(at);
      case 4:
        return unsigned ? data.getInt(at) & 0xffffffffL : data.getInt(at);
      default:
        return data.getLong(at);
    }
  }

  /** The integer beside them says -1 when there is none. */
  private static boolean hasBytes(FieldValueDesc named) {
    return named != null && named.getValue() != null;
  }

  /** Bits of a long that an integer field does not have. */
  private int spareBits() {
    return Long.SIZE - size * Byte.SIZE;
  }

  private void putInteger(ByteBuffer data, long newValue) {
    switch (size) {
      case 1:
        data.put(offset, (byte) newValue);
        break;
      case 2:
        data.putShort(offset, (short) newValue);
        break;
      case 4:
        data.putInt(offset, (int) newValue);
        break;
      default:
        data.putLong(offset, newValue);
    }
  }

  /** The message's payload, in which the field lies whole. */
  private ByteBuffer payload(Message of, Kind wanted) {
    if (kind != wanted) throw new IllegalArgumentException(this + " is not " + wanted.text);
    final ByteBuffer data = of.getData();
    if (data == null) throw new IllegalStateException("the message has no payload");
    if (offset < 0 || size < 0 || offset > data.capacity() - size) {
      throw new IndexOutOfBoundsException(
          this + " leaves the payload of " + data.capacity() + " bytes");
    }
    // The application may have changed limit and order of its view.
    final boolean asMade = data.limit() == data.capacity()
        && data.order() == ByteOrder.LITTLE_ENDIAN;
    return asMade ? data : data.duplicate().clear().order(ByteOrder.LITTLE_ENDIAN);
  }

  private ByteBuffer writable(Message of, Kind wanted) {
    final ByteBuffer data = payload(of, wanted);
    requireWritable(of);
    return data;
  }

  private static void requireWritable(Message message) {
    if (message.isDelivered()) throw new IllegalStateException("a delivered message is not written");
  }

  /** The payload, whose description must have a z-block where this field is. */
  private ByteBuffer blockPayload(Message of) {
    final ByteBuffer data = payload(of, Kind.ZBLOCK);
    final MessageDesc desc = MessageAccess.get().descOf(of);
    if (desc != null && Arrays.binarySearch(desc.zblocks(), offset) >= 0) return data;
    throw new IllegalArgumentException("the message has no z-block at the place of " + this);
  }

  /** Where the z-blocks of the field are. */
  IntStream zblocks() {
    if (message != null) return Arrays.stream(message.zblocks()).map(inner -> offset + inner);
    return kind == Kind.ZBLOCK ? IntStream.of(offset) : IntStream.empty();
  }

  private ByteBuffer slice(ByteBuffer data) {
    return data.duplicate().clear().position(offset).limit(offset + size).slice()
        .order(ByteOrder.LITTLE_ENDIAN);
  }
}
