package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.io.IOException;
import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class LoadingTest {
  private static final String LIBRARY = System.mapLibraryName("oxli_jni");

  @TempDir Path elsewhere;

  /** What the child virtual machines run. */
  static final class Child {
    private Child() {}

    public static void main(String[] args) {
      try {
        Environment.open("").close();
        System.out.println("opened");
      } catch (UnsatisfiedLinkError e) {
        System.out.println(e.getMessage());
        try {
          Environment.open("");
        } catch (NoClassDefFoundError again) {
          System.out.println("failed again");
        }
      }
    }
  }

  @Test
  void propertyLeadsToTheLibrary() throws Exception {
    final Path libraries = jarOf(Environment.class).getParent();
    assertEquals("opened\n", run(jarElsewhere(), "-Doxli.library.path=" + libraries));
  }

  @Test
  void libraryBesideTheJarIsFound() throws Exception {
    assertEquals("opened\n", run(jarOf(Environment.class), "-Djava.library.path=" + elsewhere));
  }

  @Test
  void wrongPropertyIsFollowedAllTheSame() throws Exception {
    final Path jar = jarOf(Environment.class);
    final String text = run(jar, "-Doxli.library.path=" + elsewhere,
        "-Djava.library.path=" + jar.getParent());
    assertTrue(text.startsWith("cannot load the native library oxli_jni:\n  "
        + elsewhere.resolve(LIBRARY) + ": "), text);
    assertTrue(text.endsWith("failed again\n"), text);
    assertFalse(text.contains("java.library.path"), text);
    assertFalse(text.contains(jar.getParent().toString()), text);
  }

  @Test
  void everyPlaceTriedIsNamed() throws Exception {
    final Path jar = jarElsewhere();
    final String text = run(jar, "-Djava.library.path=/nonexistent");
    assertTrue(text.contains("\n  java.library.path=/nonexistent: "), text);
    assertTrue(text.contains("\n  " + jar.resolveSibling(LIBRARY) + ": "), text);
    assertTrue(text.endsWith("failed again\n"), text);
  }

  /** What the child writes; nothing of it may be an error or a warning. */
  private String run(Path jar, String... options) throws Exception {
    final List<String> command = new ArrayList<>();
    command.add(Paths.get(System.getProperty("java.home"), "bin", "java").toString());
    command.add("-Xcheck:jni");
    // Newer virtual machines warn of native code that nobody has given leave to.
    if (Runtime.version().feature() >= 22) command.add("--enable-native-access=ALL-UNNAMED");
    command.addAll(List.of(options));
    command.addAll(List.of("-cp", jar + File.pathSeparator + jarOf(LoadingTest.class),
        Child.class.getName()));
    final Path output = Files.createTempFile(elsewhere, "output", "");
    final Path errors = Files.createTempFile(elsewhere, "errors", "");
    final ProcessBuilder builder = new ProcessBuilder(command)
        .redirectOutput(output.toFile()).redirectError(errors.toFile());
    // Each makes the virtual machine write a line that it has picked it up.
    builder.environment().keySet()
        .removeAll(List.of("JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"));
    assertEquals(0, builder.start().waitFor(), () -> text(errors));
    assertEquals("", text(errors));
    return text(output);
  }

  private Path jarElsewhere() throws Exception {
    return Files.copy(jarOf(Environment.class), elsewhere.resolve("oxli.jar"));
  }

  private static Path jarOf(Class<?> type) throws Exception {
    return Paths.get(type.getProtectionDomain().getCodeSource().getLocation().toURI());
  }

  private static String text(Path file) {
    try {
      return new String(Files.readAllBytes(file), StandardCharsets.UTF_8);
    } catch (IOException e) {
      throw new java.io.UncheckedIOException(e);
    }
  }
}
