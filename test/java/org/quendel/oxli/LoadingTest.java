package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class LoadingTest {
  private static final String LIBRARY = System.mapLibraryName("oxli_jni");

  @TempDir Path elsewhere;
  private final Path jar = Path.of(URI.create(
      Environment.class.getProtectionDomain().getCodeSource().getLocation().toString()));

  /** What the child virtual machines run. */
  static final class Child {
    private Child() {}

    public static void main(String[] args) {
      try {
        Environment.open("").close();
        System.out.println("opened");
      } catch (UnsatisfiedLinkError e) {
        System.out.println(e.getMessage());
        assertThrows(NoClassDefFoundError.class, () -> Environment.open(""));
        System.out.println("failed again");
      }
    }
  }

  @Test
  void libraryIsFoundByThePropertyOrBesideTheJar() throws Exception {
    assertEquals("opened\n", run(copy(), "-Doxli.library.path=" + jar.getParent()));
    assertEquals("opened\n", run(jar, "-Djava.library.path=" + elsewhere));
  }

  @Test
  void everyPlaceTriedIsNamedAndAWrongPropertyIsFollowed() throws Exception {
    final String every = run(copy(), "-Djava.library.path=/nonexistent");
    assertTrue(every.contains("\n  java.library.path=/nonexistent: "), every);
    assertTrue(every.contains("\n  " + elsewhere.resolve(LIBRARY) + ": "), every);
    assertTrue(every.endsWith("failed again\n"), every);

    final String text = run(jar, "-Doxli.library.path=" + elsewhere,
        "-Djava.library.path=" + jar.getParent());
    assertTrue(text.startsWith("cannot load the native library oxli_jni:\n  "
        + elsewhere.resolve(LIBRARY) + ": "), text);
    assertFalse(text.contains("java.library.path"), text);
    assertTrue(text.endsWith("failed again\n"), text);
  }

  /** What the child writes, errors and warnings included. */
  private static String run(Path jar, String... options) throws Exception {
    final List<String> command = new ArrayList<>(List.of(
        Path.of(System.getProperty("java.home"), "bin", "java").toString(), "-Xcheck:jni"));
    // Newer virtual machines warn of native code that nobody has given leave to.
    if (Runtime.version().feature() >= 22) command.add("--enable-native-access=ALL-UNNAMED");
    command.addAll(List.of(options));
    command.addAll(List.of("-cp", jar + File.pathSeparator + System.getProperty("java.class.path"),
        Child.class.getName()));
    final ProcessBuilder builder = new ProcessBuilder(command).redirectErrorStream(true);
    // Each makes the virtual machine write a line that it has picked it up.
    builder.environment().keySet()
        .removeAll(List.of("JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"));
    final Process child = builder.start();
    final String text =
        new String(child.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
    assertEquals(0, child.waitFor(), text);
    return text;
  }

  private Path copy() throws Exception {
    return Files.copy(jar, elsewhere.resolve("oxli.jar"));
  }
}
