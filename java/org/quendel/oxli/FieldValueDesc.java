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
    this.value = Descriptions.bytes(value);
    this.intValue = intValue;
  }

  /** The value's name. */
  public String getName() {
    return name;
  }

  /** Text for people. */
  public String getDescription() {
    return description;
  }

  /** The value as it stands in a payload, read-only and little-endian; or null. */
  public ByteBuffer getValue() {
    return value;
  }

  /** The value of an integer field, sign-extended for unsigned types too; else -1. */
  public long getIntValue() {
    return intValue;
  }
}
