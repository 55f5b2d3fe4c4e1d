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

/** Converts what native code passes to the constructors of the description classes. */
final class Descriptions {
  private Descriptions() {}

  /** Returns an unmodifiable view. */
  static <T> List<T> list(T[] elements) {
    return Collections.unmodifiableList(Arrays.asList(elements));
  }

  /** Maps names to elements: the first of a name counts, a null element does not. */
  static <T> Map<String, T> byName(T[] elements, Function<T, String> nameOf) {
    if (elements.length == 0) return Collections.emptyMap();
    final Map<String, T> byName = new HashMap<>();
    for (T element : elements) {
      if (element != null) byName.putIfAbsent(nameOf.apply(element), element);
    }
    return byName;
  }

  /**
   * Returns the element of that name.
   *
   * @param of the object that should have it
   * @param kind what it is, such as "field"
   * @throws NoSuchElementException if there is none
   */
  static <T> T get(Map<String, T> byName, String name, Object of, String kind) {
    final T element = byName.get(name);
    if (element != null) return element;
    throw new NoSuchElementException(of + " has no " + kind + ' ' + name);
  }

  /** Maps the keys of key, value, key, value to the values: the last of a key counts. */
  static Map<String, String> hints(String[] keysAndValues) {
    final Map<String, String> hints = new LinkedHashMap<>();
    for (int i = 0; i + 1 < keysAndValues.length; i += 2) {
      hints.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(hints);
  }

  /**
   * Returns a copy, read-only and little-endian, or null for null: the gateway's bytes live no
   * longer than what the scheme describes.
   */
  static ByteBuffer copyOf(ByteBuffer value) {
    if (value == null) return null;
    return viewOf(ByteBuffer.allocate(value.capacity()).put(value).clear());
  }

  /** Returns a read-only view for a caller, whose changes of its state reach nobody else. */
  static ByteBuffer viewOf(ByteBuffer value) {
    return value == null ? null : value.asReadOnlyBuffer().order(ByteOrder.LITTLE_ENDIAN);
  }
}
