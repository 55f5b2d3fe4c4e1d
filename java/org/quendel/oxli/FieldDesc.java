package org.quendel.oxli;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.stream.Stream;
import org.quendel.oxli.impl.MessageAccess;
import org.quendel.oxli.impl.NumberCodec;
import org.quendel.oxli.impl.Utf8String;
import org.quendel.oxli.messages.AbstractDataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;

/**
 * Describes one field of a {@link MessageDesc}, and reads and writes it in messages of that
 * description. Look a field up each time its listener or publisher is opened, and use it on any
 * thread, for all messages until that listener or publisher is opened again:
 *
 * <pre>{@code
 * FieldDesc volume = scheme.getMessage("quote").getField("volume");
 * ...
 * long traded = volume.getLong(message);
 * }</pre>
 *
 * <p>The methods that apply depend on the type: {@code i...} and {@code u...} of 1, 2, 4 or 8 bytes
 * are integers, {@code c...} is a string of fixed size, {@code d} a decimal, {@code z} a z-block; a
 * field whose {@link #getMessage} is not null is a nested message. Every method that reads or
 * writes a payload throws
 *
 * <ul>
 *   <li>{@link IllegalArgumentException} if the field is of another type,
 *   <li>{@link IndexOutOfBoundsException} if the field is not inside the payload, and
 *   <li>{@link IllegalStateException} if the message is not usable (see {@link Message}) or has no
 *       payload, or if the method writes and the message was delivered.
 * </ul>
 *
 * <p>The methods for z-blocks check that the description of the message has a z-block at the
 * field's offset, because its bytes contain an address. All other methods do not check the
 * description. Use a field only with messages of the listener or publisher that its scheme belongs
 * to, and only until that object is opened again: the layout may differ then.
 *
 * <p>Native code makes the objects of this class; {@link #getField} makes copies of them. The
 * position of a field in the null map is set while its scheme is filled; after that, the objects
 * are immutable.
 */
public final class FieldDesc {
  static final int NO_POSITION = -1;

  private enum Kind {
    INTEGER("an integer"),
    STRING("a string"),
    DECIMAL("a decimal"),
    ZBLOCK("a z-block"),
    NESTED("a nested message"),
    OTHER(null); // no method requires it, so its label is not printed

    private final String label;

    Kind(String label) {
      this.label = label;
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
  private final boolean isUnsigned;
  private int position = NO_POSITION; // in the null map; fields of nested messages have none

  FieldDesc(long number, String name, String description, String type, int size, int offset,
      ByteBuffer value, FieldValueDesc[] values, MessageDesc message) {
    this.number = number;
    this.name = name;
    this.description = description;
    this.type = type;
    this.size = size;
    this.offset = offset;
    this.value = Descriptions.copyOf(value);
    this.values = Descriptions.list(values);
    this.valuesByName = Descriptions.byName(values, FieldValueDesc::getName);
    this.message = message;
    kind = kindOf(type, size, message);
    isUnsigned = kind == Kind.INTEGER && type.charAt(0) == 'u';
    if (message != null) message.markNested();
  }

  /** Makes a copy of a nested message's field, with its offset and name in the outer message. */
  private FieldDesc(FieldDesc inner, FieldDesc outer) {
    number = inner.number;
    name = outer.name + '.' + inner.name;
    description = inner.description;
    type = inner.type;
    size = inner.size;
    offset = outer.offset + inner.offset;
    value = inner.value;
    values = inner.values;
    valuesByName = inner.valuesByName;
    message = inner.message;
    kind = inner.kind;
    isUnsigned = inner.isUnsigned;
  }

  private static Kind kindOf(String type, int size, MessageDesc message) {
    if (message != null) return Kind.NESTED;
    switch (type == null || type.isEmpty() ? '\0' : type.charAt(0)) {
      case 'i':
      case 'u':
        return NumberCodec.isIntegerSize(size) ? Kind.INTEGER : Kind.OTHER;
      case 'c':
        return Kind.STRING;
      case 'd':
        return Kind.DECIMAL;
      case 'z':
        return size == MessageAccess.DESCRIPTOR_SIZE ? Kind.ZBLOCK : Kind.OTHER;
      default:
        return Kind.OTHER;
    }
  }

  /** Returns the field's number in the gateway's description, unsigned 32-bit. */
  public long getNumber() {
    return number;
  }

  /**
   * Returns the field's name. The name of a field that {@link #getField} returned contains the
   * names of both fields and a dot, as in {@code prices.bid}.
   */
  public String getName() {
    return name;
  }

  /** Returns the field's description for human readers. */
  public String getDescription() {
    return description;
  }

  /** Returns the field's type, as in the gateway's description. */
  public String getType() {
    return type;
  }

  /** Returns the size in bytes. */
  public int getSize() {
    return size;
  }

  /**
   * Returns the offset in bytes: in the payload, or in the nested message if the field belongs to
   * the description of a nested message.
   */
  public int getOffset() {
    return offset;
  }

  /**
   * Returns the field's default as a new buffer of {@link #getSize} bytes, read-only and
   * little-endian; null if the field has no default.
   */
  public ByteBuffer getValue() {
    return Descriptions.viewOf(value);
  }

  /** Returns the named values of the field, unmodifiable. */
  public List<FieldValueDesc> getValues() {
    return values;
  }

  /**
   * Returns a named value of the field.
   *
   * @throws NoSuchElementException if there is no value of that name
   */
  public FieldValueDesc getValue(String valueName) {
    return Descriptions.get(valuesByName, valueName, this, "value");
  }

  /**
   * Returns the description of the nested message, or null. The offsets of its fields are relative
   * to the start of the nested message.
   */
  public MessageDesc getMessage() {
    return message;
  }

  /**
   * Returns a field of the nested message, with its offset in the outer message. Use it with
   * messages of the outer description. Each call returns a new object.
   *
   * @throws NoSuchElementException if there is no field of that name, or no nested message
   */
  public FieldDesc getField(String fieldName) {
    if (message == null) {
      throw new NoSuchElementException(this + " is not a nested message: no field " + fieldName);
    }
    return new FieldDesc(message.getField(fieldName), this);
  }

  /**
   * Returns the value of an integer, signed or unsigned as its type. An unsigned integer of 8 bytes
   * is returned as its bits; see {@link Long#toUnsignedString(long)}. Allocates nothing.
   */
  public long getLong(Message from) {
    return NumberCodec.readInteger(payload(from, Kind.INTEGER), offset, size, isUnsigned);
  }

  /**
   * Writes an integer; see {@link #getLong}.
   *
   * @throws IllegalArgumentException also if the value is outside the range of the field
   */
  public void setLong(Message to, long newValue) {
    final ByteBuffer data = writable(to, Kind.INTEGER);
    if (!NumberCodec.fits(newValue, size, isUnsigned)) {
      throw new IllegalArgumentException(newValue + " does not fit into " + this);
    }
    NumberCodec.writeInteger(data, offset, size, newValue);
  }

  /** Returns the name of an integer's value, or null if the value has no name. */
  public String getValueName(Message from) {
    final long found = getLong(from);
    for (int i = 0; i < values.size(); ++i) {
      final FieldValueDesc named = values.get(i);
      if (hasBytes(named) && valueOf(named) == found) return named.getName();
    }
    return null;
  }

  /**
   * Writes the integer that has the name.
   *
   * @throws NoSuchElementException if the field has no value of that name, or if the value has no
   *     bytes
   */
  public void setValueName(Message to, String valueName) {
    final FieldValueDesc named = getValue(valueName);
    final ByteBuffer data = writable(to, Kind.INTEGER);
    if (!hasBytes(named)) {
      throw new NoSuchElementException("value " + valueName + " of " + this + " has no bytes");
    }
    NumberCodec.writeInteger(data, offset, size, valueOf(named));
  }

  /**
   * Returns whether a named value has bytes. Without bytes, its integer is -1 and has no meaning.
   */
  private static boolean hasBytes(FieldValueDesc named) {
    return named != null && named.bytes() != null;
  }

  private long valueOf(FieldValueDesc named) {
    return NumberCodec.readInteger(named.bytes(), 0, size, isUnsigned);
  }

  /**
   * Returns the string, without the zero bytes that pad it. Decodes the bytes as standard UTF-8.
   * For another encoding use {@link #getBytes}.
   */
  public String getText(Message from) {
    return Utf8String.read(payload(from, Kind.STRING), offset, size);
  }

  /**
   * Writes a string as UTF-8, padded with zero bytes.
   *
   * @throws IllegalArgumentException also if the string is longer than the field, or contains a
   *     U+0000 or half of a surrogate pair
   */
  public void setText(Message to, String text) {
    Utf8String.write(writable(to, Kind.STRING), offset, size, text, this::toString);
  }

  /**
   * Returns the decimal, which the gateway decodes.
   *
   * @throws OxliException if the gateway cannot decode the bytes
   */
  public BigDecimal getDecimal(Message from) {
    final BigDecimal decimal = NumberCodec.readDecimal(payload(from, Kind.DECIMAL), offset);
    if (decimal != null) return decimal;
    throw new OxliException(
        "FieldDesc.getDecimal: no decimal in " + this + " of " + from, ResultCode.INTERNAL);
  }

  /**
   * Writes a decimal: the unscaled value as 8 bytes, then the scale as one byte. The gateway has no
   * function that encodes decimals, so this method lets the gateway decode the bytes as a check.
   *
   * @throws IllegalArgumentException also if the value does not have this form, if the field has
   *     another size, or if the gateway does not decode the same value and scale; the field is
   *     unchanged then
   */
  public void setDecimal(Message to, BigDecimal decimal) {
    if (!NumberCodec.writeDecimal(writable(to, Kind.DECIMAL), offset, size, decimal)) {
      throw new IllegalArgumentException(decimal + " does not fit into " + this);
    }
  }

  /**
   * Returns the nested message's bytes: a little-endian view of the payload, read-only if the
   * message was delivered. Do not use it when the message is no longer usable. To read and write
   * fields of the nested message by name, use {@link #getField}.
   */
  public ByteBuffer getNested(Message in) {
    return bytes(in, Kind.NESTED);
  }

  /** Returns the bytes of a field of any type, as {@link #getNested} does. */
  public ByteBuffer getBytes(Message in) {
    return bytes(in, kind);
  }

  private ByteBuffer bytes(Message in, Kind wanted) {
    payload(in, wanted);
    return in.getData().duplicate().clear().position(offset).limit(offset + size).slice()
        .order(ByteOrder.LITTLE_ENDIAN);
  }

  /**
   * Binds a z-block, which {@link Environment#newZBlock()} has made, to the bytes that the field
   * refers to. Does not copy the bytes. They may be read while the message is usable; see {@link
   * ZBlock}.
   *
   * @throws IllegalArgumentException also if the message's own description has no z-block there
   * @throws IllegalStateException also if the message was not delivered, the z-block was made to
   *     send or is closed, or the description of the message is ambiguous; see {@link
   *     AbstractDataMessage#getDesc}
   * @throws NoSuchElementException if the description of the message is not known
   * @throws OxliException if the field contains a size other than 0 and no address, or a size of
   *     more than 2^31 - 1 bytes
   */
  public void getZBlock(Message from, ZBlock block) {
    block.receive(from, zblockPayload(from), this);
  }

  /**
   * Makes the field of an outgoing message refer to the z-block's bytes. A post sends the content
   * that the memory has at the time of the post. The message keeps the memory alive until the field
   * is set again or the message is closed. A later {@link ZBlock#rebind} or close of the z-block
   * does not change the message. A post throws if the field is not empty and anything but this
   * method has written it.
   *
   * @throws IllegalArgumentException also if the message's own description has no z-block there
   * @throws IllegalStateException also if the message is not outgoing, or the z-block was made to
   *     receive or is closed
   */
  public void setZBlock(Message to, ZBlock block) {
    final ByteBuffer data = zblockPayload(to);
    if (MessageAccess.ownerOf(to) == null) {
      throw new IllegalStateException(to + " is not outgoing: it cannot refer to " + block);
    }
    MessageAccess.noteBlock(to, offset, block.send(data, offset));
  }

  /**
   * Returns whether the field is null in a row; false if the row has no null map.
   *
   * @throws IllegalArgumentException if the field belongs to a nested message: null maps have no
   *     flags for such fields
   */
  public boolean isNull(StreamDataMessage row) {
    return row.isNull(requirePosition());
  }

  /**
   * Marks the field of an outgoing row as null or not.
   *
   * @throws IllegalArgumentException if the field belongs to a nested message: null maps have no
   *     flags for such fields
   * @throws IllegalStateException if the row has no null map
   */
  public void setNull(StreamDataMessage row, boolean isNull) {
    row.setNull(requirePosition(), isNull);
  }

  /** Returns "field", the name and, in parentheses, the type. */
  @Override
  public String toString() {
    return "field " + name + " (" + type + ')';
  }

  /** Sets the position in the null map. Called by the description of the message. */
  void setPosition(int newPosition) {
    position = newPosition;
  }

  int getPosition() {
    return position;
  }

  private int requirePosition() {
    if (position != NO_POSITION) return position;
    throw new IllegalArgumentException(this + " belongs to a nested message: it has no null flag");
  }

  /**
   * Returns the payload after checking the kind of the field and that the field is inside the
   * payload.
   */
  private ByteBuffer payload(Message of, Kind wanted) {
    if (kind != wanted) throw new IllegalArgumentException(this + " is not " + wanted.label);
    final ByteBuffer data = MessageAccess.payloadOf(of);
    if (data == null) throw new IllegalStateException(of + " has no payload");
    if (offset < 0 || size < 0 || offset > data.capacity() - size) {
      throw new IndexOutOfBoundsException(this + ", " + size + " bytes at " + offset
          + ", is not inside the payload of " + of + ", " + data.capacity() + " bytes");
    }
    return data;
  }

  private ByteBuffer writable(Message of, Kind wanted) {
    final ByteBuffer data = payload(of, wanted);
    MessageAccess.requireWritable(of);
    return data;
  }

  /** Returns the payload after checking that the message has a z-block at the field's offset. */
  private ByteBuffer zblockPayload(Message of) {
    final ByteBuffer data = payload(of, Kind.ZBLOCK);
    MessageDesc desc = MessageAccess.descOf(of);
    if (desc == null && of instanceof AbstractDataMessage) {
      desc = ((AbstractDataMessage) of).getDesc(); // throws an exception with the reason
    }
    if (desc != null && desc.hasZblockAt(offset)) return data;
    throw new IllegalArgumentException(of + " has no z-block where " + this + " is");
  }

  /** Returns this field if it is a z-block, or the z-block fields of the nested message. */
  Stream<FieldDesc> zblockFields() {
    if (message != null) {
      return Stream.of(message.zblockFields()).map(inner -> new FieldDesc(inner, this));
    }
    return kind == Kind.ZBLOCK ? Stream.of(this) : Stream.empty();
  }
}
