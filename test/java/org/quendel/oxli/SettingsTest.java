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
      "a=\"x;y\";B=?{c=1;d=2}|{B=?{c=1;d=2}, a=x;y}",
      "d=c:\\logs\\;ü=€|{d=c:\\logs\\, ü=€}"})
  void pairsAreOrderedByKey(String settings, String pairs) {
    assertEquals(pairs, Settings.parse(settings).toString());
  }

  @ParameterizedTest
  @CsvSource(delimiter = '|', quoteCharacter = '\0', value = {
      "a=1;b|\"b\" at 4 has no =",
      "a=\\;bc;d=1|\"bc\" at 4 has no =",
      "a=1;b=\"c;d|the quotes or a block of the pair at 4 are not closed",
      "a=\"x;y\";?{b;c=1|the quotes or a block of the pair at 8 are not closed"})
  void faultIsDescribed(String settings, String fault) {
    final Exception refused =
        assertThrows(IllegalArgumentException.class, () -> Settings.parse(settings));
    assertEquals("malformed settings: " + fault, refused.getMessage());
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
