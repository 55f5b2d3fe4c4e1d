package org.quendel.oxli.impl;

import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;

/** Makes exceptions of result codes, and the names that objects have in them. */
public final class Results {
  private static final int MAX_SETTINGS = 60;
  private static final String LOG_HINT =
      "; the stand-in gateway writes its log if the environment's settings contain log=stderr";

  private static final Pattern PASSWORD = Pattern.compile("password=", Pattern.CASE_INSENSITIVE);
  private static final String MASK = "***";

  private Results() {}

  /**
   * Returns if the code is {@link ResultCode#OK}.
   *
   * @param operation what was called, such as "Publisher.post"
   * @param object what it was called on; shown by its {@code toString}
   * @throws OxliException otherwise
   */
  public static void check(String operation, Object object, int code) {
    if (code != ResultCode.OK) throw failure(operation, object, code);
  }

  /** Returns the exception for an operation that failed with a code of the gateway. */
  public static OxliException failure(String operation, Object object, int code) {
    final String name = ResultCode.nameOf(code);
    final String meaning = String.valueOf(OxliImpl.err_getstr(code));
    // The gateway's string may begin with the name.
    return new OxliException(operation + " (" + object + "): "
        + (meaning.startsWith(name) ? meaning : name + ": " + meaning) + inHex(code) + LOG_HINT,
        code);
  }

  /** Returns " (0x20001)" for that code. */
  public static String inHex(int code) {
    return " (0x" + Integer.toHexString(code) + ')';
  }

  /**
   * Returns the name of an object by its kind and the beginning of its settings, without passwords.
   */
  public static String nameOf(String kind, String settings) {
    if (settings.isEmpty()) return kind;
    final String masked = mask(settings); // before the cut, which may be inside a password
    return kind + ' ' + (masked.length() <= MAX_SETTINGS ? masked
        : masked.substring(0, MAX_SETTINGS) + "...");
  }

  /**
   * Returns the settings with {@code ***} instead of what follows "password=" in a pair, and instead
   * of user and password in addresses: what is between {@code //} and the last {@code @} of a pair.
   */
  public static String mask(String settings) {
    final StringBuilder masked = new StringBuilder();
    int begin = 0; // of the pair
    boolean isQuoted = false;
    for (int i = 0; i < settings.length(); ++i) {
      final char c = settings.charAt(i);
      final boolean isEscaped = i > 0 && settings.charAt(i - 1) == '\\';
      if (c == '"' && !isEscaped) isQuoted = !isQuoted;
      if (c != ';' || isEscaped || isQuoted) continue;
      masked.append(maskPair(settings.substring(begin, i))).append(';');
      begin = i + 1;
    }
    return masked.append(maskPair(settings.substring(begin))).toString();
  }

  private static String maskPair(String pair) {
    final Matcher password = PASSWORD.matcher(pair);
    if (password.find()) return maskPair(pair.substring(0, password.start())) + "password=" + MASK;
    final int address = pair.indexOf("//");
    final int login = address + "//".length();
    final int end = pair.lastIndexOf('@');
    if (address < 0 || end < login) return pair;
    return pair.substring(0, login) + MASK + pair.substring(end);
  }
}
