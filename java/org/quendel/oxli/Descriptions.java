package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.Collections;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.NoSuchElementException;
import java.util.function.Function;

/** How the description classes show what native code hands their constructors. */
final class Descriptions {
  private Descriptions() {}

  /** A view; native code does not touch the array any more. */
  static <T> List<T> list(T[] elements) {
    return Collections.unmodifiableList(Arrays.asList(elements));
  }

  /** Of two elements of one name the first counts; elements that are missing do not. */
  static <T> Map<String, T> byName(T[] elements, Function<T, String> nameOf) {
    if (elements.length == 0) return Collections.emptyMap();
    final Map<String, T> byName = new HashMap<>();
    for (T element : elements) {
      if (element != null) byName.putIfAbsent(nameOf.apply(element), element);
    }
    return byName;
  }

  /** The element of that name, for example the "field" that "message" "quote" has. */
  static <T> T get(Map<String, T> byName, String name, String ownerKind, String owner,
      String kind) {
    final T element = byName.get(name);
    if (element != null) return element;
    throw new NoSuchElementException(ownerKind + ' ' + owner + " has no " + kind + ' ' + name);
  }

  /** Hints come as key, value, key, value; of two with one key the later counts. */
  static Map<String, String> hints(String[] keysAndValues) {
    final Map<String, String> hints = new LinkedHashMap<>();
    for (int i = 0; i + 1 < keysAndValues.length; i += 2) {
      hints.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(hints);
  }

  /** A copy, because the gateway's bytes end with the scheme's owner; null stays null. */
  static ByteBuffer bytes(ByteBuffer value) {
    if (value == null) return null;
    return ByteBuffer.allocate(value.capacity()).put(value).clear().asReadOnlyBuffer()
        .order(ByteOrder.LITTLE_ENDIAN);
  }
}
