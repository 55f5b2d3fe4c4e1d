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

/** Converts the arguments that native code passes to the constructors of the descriptions. */
final class Descriptions {
  private Descriptions() {}

  /** Returns an unmodifiable view of the array. */
  static <T> List<T> list(T[] elements) {
    return Collections.unmodifiableList(Arrays.asList(elements));
  }

  /** Maps names to elements. Omits null elements, and all but the first element of a name. */
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
   * @param of the object that the elements belong to; named in the exception
   * @param kind the kind of the element, such as "field"; named in the exception
   * @throws NoSuchElementException if there is no such element
   */
  static <T> T get(Map<String, T> byName, String name, Object of, String kind) {
    final T element = byName.get(name);
    if (element != null) return element;
    throw new NoSuchElementException(of + " has no " + kind + ' ' + name);
  }

  /** Maps keys to values. The array is key, value, key, value. Of equal keys, the last is used. */
  static Map<String, String> hints(String[] keysAndValues) {
    final Map<String, String> hints = new LinkedHashMap<>();
    for (int i = 0; i + 1 < keysAndValues.length; i += 2) {
      hints.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(hints);
  }

  /**
   * Returns a read-only, little-endian copy, or null for null. Copied, because the gateway's memory
   * is valid during the opening only.
   */
  static ByteBuffer copyOf(ByteBuffer value) {
    if (value == null) return null;
    return viewOf(ByteBuffer.allocate(value.capacity()).put(value).clear());
  }

  /** Returns a new read-only view, so that a caller can change its position, limit and order. */
  static ByteBuffer viewOf(ByteBuffer value) {
    return value == null ? null : value.asReadOnlyBuffer().order(ByteOrder.LITTLE_ENDIAN);
  }
}
