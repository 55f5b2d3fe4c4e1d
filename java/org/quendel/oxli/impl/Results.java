package org.quendel.oxli.impl;

import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;

/** Makes exceptions from result codes, and the names of objects in their messages. */
public final class Results {
  private static final int MAX_SETTINGS = 60;
  private static final String LOG_HINT =
      "; the stand-in gateway writes its log if the environment's settings contain log=stderr";

  private static final Pattern PASSWORD = Pattern.compile("password=", Pattern.CASE_INSENSITIVE);
  private static final String MASK = "***";

  private Results() {}

  /**
   * Throws an exception unless the code is {@link ResultCode#OK}.
   *
   * @param operation the method that was called, such as "Publisher.post"
   * @param object the object that it was called on; the message contains its {@code toString}
   * @throws OxliException if the code is not OK
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

  /** Returns the code in hexadecimal, such as " (0x20001)". */
  public static String inHex(int code) {
    return " (0x" + Integer.toHexString(code) + ')';
  }

  /**
   * Returns the name of an object: its kind and the first 60 characters of its settings, without
   * passwords.
   */
  public static String nameOf(String kind, String settings) {
    if (settings.isEmpty()) return kind;
    // Masked first: a shortened string may lack the "@" by which a password is found.
    final String masked = mask(settings);
    return kind + ' ' + (masked.length() <= MAX_SETTINGS ? masked
        : masked.substring(0, MAX_SETTINGS) + "...");
  }

  /**
   * Returns the settings with passwords replaced by {@code ***}: in each pair, the characters after
   * "password=", and the user and password of an address, which are the characters between {@code
   * //} and the last {@code @} of the pair.
   */
  public static String mask(String settings) {
    final StringBuilder masked = new StringBuilder();
    int begin = 0; // position of the pair
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
