package org.quendel.oxli.impl;

import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.function.Supplier;

/** Reads and writes strings of fixed size in payloads: standard UTF-8, padded with zero bytes. */
public final class Utf8String {
  private Utf8String() {}

  /** Returns the string at the offset, without the padding. */
  public static String read(ByteBuffer payload, int offset, int size) {
    final byte[] bytes = new byte[size];
    payload.duplicate().position(offset).get(bytes);
    int end = 0;
    while (end < size && bytes[end] != 0) ++end;
    return new String(bytes, 0, end, StandardCharsets.UTF_8);
  }

  /**
   * Writes a string at the offset.
   *
   * @param place returns the name of the place for the message of an exception
   * @throws IllegalArgumentException if the string does not fit, or if it contains a U+0000 or half
   *     of a surrogate pair, so that {@link #read} would return another string
   */
  public static void write(ByteBuffer payload, int offset, int size, String string,
      Supplier<String> place) {
    requireReadBack(string, place);
    final byte[] bytes = string.getBytes(StandardCharsets.UTF_8);
    if (bytes.length > size) {
      throw new IllegalArgumentException(bytes.length + " bytes do not fit into " + place.get());
    }
    payload.duplicate().position(offset).put(Arrays.copyOf(bytes, size));
  }

  private static void requireReadBack(String string, Supplier<String> place) {
    for (int i = 0; i < string.length(); ++i) {
      final char c = string.charAt(i);
      final boolean isPair = Character.isHighSurrogate(c) && i + 1 < string.length()
          && Character.isLowSurrogate(string.charAt(i + 1));
      if (isPair) {
        ++i;
      } else if (c == 0 || Character.isSurrogate(c)) {
        throw new IllegalArgumentException(String.format(
            "%s cannot contain U+%04X, which the string has at %d", place.get(), (int) c, i));
      }
    }
  }
}
