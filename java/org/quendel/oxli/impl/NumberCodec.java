package org.quendel.oxli.impl;

import java.math.BigDecimal;
import java.nio.ByteBuffer;

/**
 * Reads and writes integers and decimals in payloads. Buffers are little-endian. REQUIRES: the
 * value is inside the buffer; of a decimal that is read, at least the first byte.
 */
public final class NumberCodec {
  private static final int DECIMAL_SIZE = Long.BYTES + Byte.BYTES;

  /** Maximum number of bytes that the gateway may read of a decimal. */
  private static final int DECIMAL_ROOM = 64;

  /** Direct memory into which decimals are copied that native code cannot read in place. */
  private static final ThreadLocal<ByteBuffer> ROOM =
      ThreadLocal.withInitial(() -> ByteBuffer.allocateDirect(DECIMAL_ROOM));

  private NumberCodec() {}

  /** Returns whether an integer can have the size in bytes. */
  public static boolean isIntegerSize(int size) {
    return size == 1 || size == 2 || size == 4 || size == 8;
  }

  /** Returns the integer at the offset. An unsigned integer of 8 bytes is returned as its bits. */
  public static long readInteger(ByteBuffer data, int offset, int size, boolean isUnsigned) {
    switch (size) {
      case 1:
        return isUnsigned ? data.get(offset) & 0xffL : data.get(offset);
      case 2:
        return isUnsigned ? data.getShort(offset) & 0xffffL : data.getShort(offset);
      case 4:
        return isUnsigned ? data.getInt(offset) & 0xffffffffL : data.getInt(offset);
      default:
        return data.getLong(offset);
    }
  }

  /** Writes the low bytes of the value at the offset. */
  public static void writeInteger(ByteBuffer data, int offset, int size, long value) {
    switch (size) {
      case 1:
        data.put(offset, (byte) value);
        break;
      case 2:
        data.putShort(offset, (short) value);
        break;
      case 4:
        data.putInt(offset, (int) value);
        break;
      default:
        data.putLong(offset, value);
    }
  }

  /** Returns whether an integer of the size and signedness can have the value. */
  public static boolean fits(long value, int size, boolean isUnsigned) {
    final int spareBits = Long.SIZE - size * Byte.SIZE;
    final long stored = value << spareBits;
    return (isUnsigned ? stored >>> spareBits : stored >> spareBits) == value;
  }

  /** Returns the decimal at the offset, or null if the gateway cannot decode the bytes. */
  public static BigDecimal readDecimal(ByteBuffer data, int offset) {
    // The native passes the address of the first byte without a size. The gateway reads as many
    // bytes as the encoding has.
    final ByteBuffer bytes = data.duplicate().position(offset);
    if (data.isDirect() && bytes.remaining() >= DECIMAL_ROOM) {
      return OxliImpl.bcd_get(bytes.slice());
    }
    final ByteBuffer room = ROOM.get();
    room.clear();
    room.put(bytes.limit(Math.min(bytes.limit(), offset + DECIMAL_ROOM)));
    while (room.hasRemaining()) room.put((byte) 0);
    return OxliImpl.bcd_get(room);
  }

  /**
   * Writes a decimal into a field: the unscaled value as 8 bytes, then the scale as one byte.
   *
   * @return false, with the field unchanged, if the field has another size, if the decimal does not
   *     have this form, or if the gateway does not decode the same decimal
   */
  public static boolean writeDecimal(ByteBuffer data, int offset, int size, BigDecimal decimal) {
    final boolean isEncodable = size == DECIMAL_SIZE
        && decimal.unscaledValue().bitLength() < Long.SIZE
        && decimal.scale() == (byte) decimal.scale();
    if (!isEncodable) return false;
    final long oldMantissa = data.getLong(offset);
    final byte oldScale = data.get(offset + Long.BYTES);
    boolean isRead = false;
    try {
      data.putLong(offset, decimal.unscaledValue().longValue());
      data.put(offset + Long.BYTES, (byte) decimal.scale());
      isRead = decimal.equals(readDecimal(data, offset));
    } finally {
      if (!isRead) data.putLong(offset, oldMantissa).put(offset + Long.BYTES, oldScale);
    }
    return isRead;
  }
}
