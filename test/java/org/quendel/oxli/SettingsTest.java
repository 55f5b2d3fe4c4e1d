package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.quendel.oxli.ex.impl.OxliImplEx;

class SettingsTest extends GatewayTest {
  @ParameterizedTest
  @CsvSource(delimiter = '|', quoteCharacter = '\0', value = {
      "b=2;a=1|{a=1, b=2}",
      "a=1;;a=2;|{a=2}",
      "a=\"x;y\";B=?{c=1;d=2}|{B=?{c=1;d=2}, a=x;y}",
      "d=c:\\logs\\;ü=€|{d=c:\\logs\\, ü=€}"})
  void pairsComeInOrderOfTheirKeys(String settings, String pairs) {
    assertEquals(pairs, Settings.parse(settings).toString());
  }

  @ParameterizedTest
  @CsvSource(delimiter = '|', quoteCharacter = '\0', value = {
      "a=1;b|\"b\" at 4 has no =",
      "ab;c=1|\"ab\" at 0 has no =",
      "a=\\;bc|\"bc\" at 4 has no =",
      "a\\\"b;c=1|\"a\\\"b\" at 0 has no =",
      "a=1;b=\"c;d|nothing closes the quotes at 6",
      "a=\"b\\\"|nothing closes the quotes at 2",
      "a=?{b=?{c}|nothing closes the block at 3",
      "a=\"?{b\"|nothing closes the block at 4",
      "?{a=1|nothing closes the block at 1"})
  void whatIsWrongIsSaid(String settings, String fault) {
    final Exception refused =
        assertThrows(IllegalArgumentException.class, () -> Settings.parse(settings));
    assertEquals("malformed settings: " + fault, refused.getMessage());
  }

  /** Mending what is said to be wrong, again and again, ends in a text that is well formed. */
  @Test
  void faultsAreThoseOfTheParser() {
    final Random random = new Random(1);
    for (int i = 0; i < 3000; ++i) {
      final StringBuilder text = new StringBuilder();
      for (int length = random.nextInt(20); length > 0; --length) {
        text.append("=;?{}\"\\ab".charAt(random.nextInt(9)));
      }
      final String original = text.toString();
      for (int mended = 0;; ++mended) {
        final String fault = faultOf(text.toString());
        if (fault == null) break;
        assertTrue(mended < 40, original);
        mend(text, fault);
      }
    }
  }

  private static String faultOf(String settings) {
    try {
      Settings.parse(settings);
      return null;
    } catch (IllegalArgumentException e) {
      return e.getMessage();
    }
  }

  private static void mend(StringBuilder text, String fault) {
    if (fault.contains("nothing closes")) {
      // A last backslash would escape what closes.
      if (text.charAt(text.length() - 1) == '\\') text.append('x');
      text.append(fault.contains("the quotes") ? '"' : '}');
    } else {
      final int begin = Integer.parseInt(fault.replaceAll("(?s).*\" at (\\d+) has no =", "$1"));
      text.insert(begin, "k=");
    }
  }

  @Test
  void parserNeedsAnOpenEnvironment() {
    assertEquals(Map.of(), Settings.parse(""));
    assertThrows(NullPointerException.class, () -> Settings.parse(null));
    assertNull(OxliImplEx.settings_parse(null));
    environment.close();
    assertThrows(IllegalStateException.class, () -> Settings.parse(""));
  }
}
