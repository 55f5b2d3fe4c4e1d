package org.quendel.oxli;

import java.util.ArrayDeque;
import java.util.Collections;
import java.util.Deque;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Objects;
import org.quendel.oxli.ex.impl.OxliImplEx;
import org.quendel.oxli.impl.Results;

/**
 * Reads settings texts, {@code key=value;key=value}, as the gateway's own parser does. They pass
 * through modified UTF-8 and back, which changes nothing in them.
 *
 * <ul>
 *   <li>A value in double quotes may hold {@code ;}. The quotes are not part of it.
 *   <li>A block <code>?{...}</code> may stand in a value and hold {@code ;} and more blocks. Its braces
 *       stay: parse what is between them as a settings text of its own.
 *   <li>A backslash before a double quote disappears and makes it an ordinary character; before any
 *       other character it stays. Inside quotes and blocks a {@code ;} behind a backslash is lost. In
 *       keys a backslash means nothing.
 *   <li>Blanks are ordinary characters, empty pairs count for nothing, and of two pairs with one key
 *       the later counts.
 * </ul>
 */
public final class Settings {
  private Settings() {}

  /**
   * The pairs of a settings text in ascending order of the keys' bytes, unmodifiable.
   *
   * @throws IllegalArgumentException when the text is malformed, saying what is wrong and where
   * @throws IllegalStateException when no environment is open: the parser is one of its services
   * @throws OxliException when there is no memory
   */
  public static Map<String, String> parse(String settings) {
    Objects.requireNonNull(settings, "settings");
    final String[] keysAndValues = Environment.whileOpen(() -> OxliImplEx.settings_parse(settings));
    if (keysAndValues == null) {
      throw new IllegalArgumentException("malformed settings: " + faultOf(settings));
    }
    final Map<String, String> pairs = new LinkedHashMap<>();
    for (int i = 0; i < keysAndValues.length; i += 2) {
      pairs.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(pairs);
  }

  /** What is wrong with a text that the parser has refused. */
  private static String faultOf(String settings) {
    final Deque<Integer> open = new ArrayDeque<>(); // where quotes and blocks begin
    boolean inKey = true;
    int key = 0; // where the key begins, or the next one would
    for (int i = 0; i < settings.length(); ++i) {
      final char c = settings.charAt(i);
      final char before = i == 0 ? ';' : settings.charAt(i - 1);
      final boolean inQuotes = !open.isEmpty() && settings.charAt(open.peek()) == '"';
      if (c == '{' && before == '?') {
        open.push(i);
      } else if (c == '\\' && !(inKey && open.isEmpty())) {
        ++i; // what follows is escaped, except that it may end the value
        if (i < settings.length() && settings.charAt(i) == ';' && open.isEmpty()) {
          inKey = true;
          key = i + 1;
        }
      } else if (!open.isEmpty()) {
        if (c == (inQuotes ? '"' : '}')) open.pop();
      } else if (inKey && c == '=') {
        inKey = false;
      } else if (!inKey && c == '"' && before == '=') {
        open.push(i);
      } else if (c == ';') {
        if (inKey && key < i) return noValue(settings, key, i);
        inKey = true;
        key = i + 1;
      }
    }
    if (open.isEmpty()) {
      // Nothing is wrong with the text itself.
      if (!inKey || key == settings.length()) {
        throw Results.failure("Settings.parse", ResultCode.INTERNAL);
      }
      return noValue(settings, key, settings.length());
    }
    final int begin = open.peek();
    return "nothing closes the " + (settings.charAt(begin) == '"' ? "quotes" : "block") + " at "
        + begin;
  }

  private static String noValue(String settings, int begin, int end) {
    return '"' + settings.substring(begin, end) + "\" at " + begin + " has no =";
  }
}
