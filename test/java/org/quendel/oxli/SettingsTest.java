package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvFileSource;
import org.quendel.oxli.ex.impl.OxliImplEx;
import org.quendel.oxli.impl.Results;

class SettingsTest extends GatewayTest {
  /** The file contains the pairs in the order of their keys, or the fault that is reported. */
  @ParameterizedTest
  @CsvFileSource(resources = "settings.txt", delimiter = '|', quoteCharacter = '\0')
  void settingsAreParsedOrTheirFaultIsNamed(String settings, String expected) {
    if (expected.startsWith("{")) {
      assertEquals(expected, Settings.parse(settings).toString());
    } else {
      final Exception refused =
          assertThrows(IllegalArgumentException.class, () -> Settings.parse(settings));
      assertEquals("malformed settings: " + expected, refused.getMessage());
    }
  }

  @ParameterizedTest
  @CsvFileSource(resources = "passwords.txt", delimiter = '|', quoteCharacter = '\0')
  void namesOfObjectsContainNoPasswords(String settings, String shown) {
    assertEquals("environment " + shown, Results.nameOf("environment", settings));
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
