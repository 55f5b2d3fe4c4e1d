package org.quendel.oxli;

import java.nio.ByteBuffer;

/** Describes one named value of a {@link FieldDesc}. Made by native code; immutable. */
public final class FieldValueDesc {
  private final String name;
  private final String description;
  private final ByteBuffer value;
  private final long intValue;

  FieldValueDesc(String name, String description, ByteBuffer value, long intValue) {
    this.name = name;
    this.description = description;
    this.value = Descriptions.copyOf(value);
    this.intValue = intValue;
  }

  /** Returns the value's name. */
  public String getName() {
    return name;
  }

  /** Returns the value's description for human readers. */
  public String getDescription() {
    return description;
  }

  /**
   * Returns the bytes of this value in a payload, or null if it has none: a new buffer, read-only
   * and little-endian.
   */
  public ByteBuffer getValue() {
    return Descriptions.viewOf(value);
  }

  /**
   * Returns the value of an integer field, sign-extended even if the type is unsigned. Returns -1
   * for a field of another type and for a value without bytes.
   */
  public long getIntValue() {
    return intValue;
  }

  /** Returns "value", the name and {@link #getIntValue}. */
  @Override
  public String toString() {
    return "value " + name + " = " + intValue;
  }

  /** Returns the buffer itself, or null. Do not change its position, limit and order. */
  ByteBuffer bytes() {
    return value;
  }
}
