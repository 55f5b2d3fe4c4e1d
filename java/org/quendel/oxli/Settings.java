package org.quendel.oxli;

import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Objects;
import org.quendel.oxli.ex.impl.OxliImplEx;
import org.quendel.oxli.impl.Results;

/**
 * Parses settings strings, {@code key=value;key=value}, with the parser of the native library.
 * Characters are converted to modified UTF-8 and back, which does not change them.
 *
 * <ul>
 *   <li>A value in double quotes may contain {@code ;}. The quotes are not part of the value.
 *   <li>A value may contain blocks <code>?{...}</code>. A block may contain {@code ;} and further
 *       blocks. The block is part of the value, with its braces: to parse the settings in a block,
 *       pass the characters between the braces to {@link #parse}.
 *   <li>In a value, a double quote after a backslash is an ordinary character, and the backslash is
 *       removed. A backslash before any other character is part of the value. Inside quotes and
 *       blocks, a {@code ;} after a backslash is removed. In keys a backslash is an ordinary
 *       character.
 *   <li>Blanks are ordinary characters. Empty pairs are ignored. Of two pairs with the same key,
 *       the later one is used.
 * </ul>
 */
public final class Settings {
  private Settings() {}

  /**
   * Returns the pairs of the settings in ascending order of the keys' bytes, unmodifiable.
   *
   * @throws IllegalArgumentException if the settings are malformed; the message describes the fault
   *     and the position of its pair, in characters from 0
   * @throws IllegalStateException if no environment is open: the native needs the class cache of an
   *     open environment
   * @throws OxliException if memory is missing
   */
  public static Map<String, String> parse(String settings) {
    Objects.requireNonNull(settings, "settings");
    final String[] keysAndValues = pairsOf(settings);
    if (keysAndValues == null) {
      throw new IllegalArgumentException("malformed settings: " + faultOf(settings));
    }
    final Map<String, String> pairs = new LinkedHashMap<>();
    for (int i = 0; i < keysAndValues.length; i += 2) {
      pairs.put(keysAndValues[i], keysAndValues[i + 1]);
    }
    return Collections.unmodifiableMap(pairs);
  }

  private static String[] pairsOf(String settings) {
    return Environment.whileOpen(() -> OxliImplEx.settings_parse(settings));
  }

  private static boolean isValid(String settings) {
    return pairsOf(settings) != null;
  }

  /**
   * Describes the fault of the first pair that the parser refuses, which is found by parsing each
   * pair alone.
   */
  private static String faultOf(String settings) {
    int begin = 0;
    for (int end = settings.indexOf(';'); end >= 0; end = settings.indexOf(';', end + 1)) {
      if (isValid(settings.substring(begin, end))) begin = end + 1;
    }
    final String rest = settings.substring(begin);
    if (isValid(rest)) throw Results.failure(
        "Settings.parse", Results.mask(rest), ResultCode.INTERNAL);
    final String pair = rest.substring(0, (rest + ';').indexOf(';'));
    return isValid(pair + '=')
        ? "pair \"" + Results.mask(pair) + "\" at character " + begin + " has no \"=\""
        : "the pair at character " + begin + " has unclosed quotes or an unclosed block";
  }
}
