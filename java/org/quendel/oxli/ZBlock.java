package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/** A block of bytes that a message refers to instead of carrying it. Filled by native code. */
public final class ZBlock {
  private ByteBuffer data;

  ZBlock() {}

  /** Called by native code that owns the block: this object releases nothing. */
  ZBlock(long handle) {}

  /** The bytes, little-endian, valid as long as the message they came with; null before. */
  public ByteBuffer getData() {
    return data;
  }

  void setData(ByteBuffer newData) {
    data = newData == null ? null : newData.order(ByteOrder.LITTLE_ENDIAN);
  }
}
