package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.util.List;

/** One field of a {@link MessageDesc}. Immutable; made by native code. */
public final class FieldDesc {
  private final long number;
  private final String name;
  private final String description;
  private final String type;
  private final int size;
  private final int offset;
  private final ByteBuffer value;
  private final List<FieldValueDesc> values;
  private final MessageDesc message;

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
    this.message = message;
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

  /** Bytes from the start of the payload. */
  public int getOffset() {
    return offset;
  }

  /**
   * The field's default, or null: {@link #getSize} bytes of gateway memory, read-only and
   * little-endian, valid as long as the scheme's owner.
   */
  public ByteBuffer getValue() {
    return value;
  }

  /** Named values of the field, unmodifiable. */
  public List<FieldValueDesc> getValues() {
    return values;
  }

  /** The nested message, or null. */
  public MessageDesc getMessage() {
    return message;
  }
}
