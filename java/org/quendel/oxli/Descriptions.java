package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** How the description classes show what native code hands their constructors. */
final class Descriptions {
  private Descriptions() {}

  /** A view; native code does not touch the array any more. */
  static <T> List<T> list(T[] elements) {
    return Collections.unmodifiableList(Arrays.asList(elements));
  }

  /** Hints come as key, value, key, value; of two with one key the later counts. */
  static Map<String, String> hints(String[] keysAndValues) {
    final Map<String, String> hints = new LinkedHashMap<>();
    for (int i = 0; i + 1 < keysAndValues.length; i += 2) {
      hints.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(hints);
  }

  /** Read-only, because the bytes are the gateway's; null stays null. */
  static ByteBuffer bytes(ByteBuffer value) {
    return value == null ? null : value.asReadOnlyBuffer().order(ByteOrder.LITTLE_ENDIAN);
  }
}
