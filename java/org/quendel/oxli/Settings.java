package org.quendel.oxli;

import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Objects;
import org.quendel.oxli.ex.impl.OxliImplEx;
import org.quendel.oxli.impl.Results;

/**
 * Reads settings, {@code key=value;key=value}, as the gateway's own parser does. They pass through
 * modified UTF-8 and back, which changes nothing in them.
 *
 * <ul>
 *   <li>A value in double quotes may contain {@code ;}. The quotes are not part of it.
 *   <li>A block <code>?{...}</code> may be in a value and contain {@code ;} and more blocks. Its
 *       braces stay: parse what is between them as settings of their own.
 *   <li>A backslash before a double quote is removed and makes it an ordinary character; before any
 *       other character it stays. Inside quotes and blocks a {@code ;} after a backslash is lost.
 *       In keys a backslash means nothing.
 *   <li>Blanks are ordinary characters, empty pairs are ignored, and of two pairs with one key the
 *       later counts.
 * </ul>
 */
public final class Settings {
  private Settings() {}

  /**
   * Returns the pairs of the settings in ascending order of the keys' bytes, unmodifiable.
   *
   * @throws IllegalArgumentException if the settings are malformed, saying what is wrong and where
   * @throws IllegalStateException if no environment is open: the parser is one of its services
   * @throws OxliException if there is no memory
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

  /** Finds the first pair that the parser refuses, by asking the parser for each. */
  private static String faultOf(String settings) {
    int begin = 0;
    for (int end = settings.indexOf(';'); end >= 0; end = settings.indexOf(';', end + 1)) {
      if (isValid(settings.substring(begin, end))) begin = end + 1;
    }
    final String rest = settings.substring(begin);
    if (isValid(rest)) throw Results.failure(
        "Settings.parse", Results.mask(rest), ResultCode.INTERNAL);
    final String pair = rest.substring(0, (rest + ';').indexOf(';'));
    return isValid(pair + '=') ? '"' + Results.mask(pair) + "\" at " + begin + " has no ="
        : "the quotes or a block of the pair at " + begin + " are not closed";
  }
}
