package org.quendel.oxli;

import java.nio.ByteBuffer;

/** A named value of a {@link FieldDesc}. Immutable; made by native code. */
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
   * Returns the bytes that the field has in a payload, or null: a new buffer, read-only and
   * little-endian.
   */
  public ByteBuffer getValue() {
    return Descriptions.viewOf(value);
  }

  /** Returns the value of an integer field, sign-extended for unsigned types too; else -1. */
  public long getIntValue() {
    return intValue;
  }

  /** Returns the name and the value. */
  @Override
  public String toString() {
    return "value " + name + " = " + intValue;
  }

  /** Returns the bytes themselves, whose state must not change, or null. */
  ByteBuffer bytes() {
    return value;
  }
}
