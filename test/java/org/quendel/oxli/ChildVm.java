package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.File;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.*;

/** Runs a main class in a virtual machine of its own. */
final class ChildVm {
  /** The option that denies native access, for Java 24 and later. */
  static final String DENY = "--illegal-native-access=deny";
  static final String LIBRARY = System.mapLibraryName("oxli_jni");
  static final Path JAR = Path.of(URI.create(
      Environment.class.getProtectionDomain().getCodeSource().getLocation().toString()));

  private final ProcessBuilder builder = new ProcessBuilder(
      Path.of(System.getProperty("java.home"), "bin", "java").toString(), "-Xcheck:jni");
  /** The environment variables of the virtual machine. */
  final Map<String, String> environment = builder.environment();

  ChildVm(String... options) {
    Collections.addAll(builder.command(), options);
    // Newer virtual machines warn if native access is not enabled.
    if (Runtime.version().feature() >= 22 && !List.of(options).contains(DENY)) {
      builder.command().add("--enable-native-access=ALL-UNNAMED");
    }
    // If one of these variables is set, the virtual machine writes a line that names it.
    environment.keySet()
        .removeAll(List.of("JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"));
  }

  /** Runs the program, expects exit code 0, and returns its standard output and standard error. */
  String run(Path jar, Class<?> main, String... arguments) throws Exception {
    Collections.addAll(builder.command(), "-cp",
        jar + File.pathSeparator + System.getProperty("java.class.path"), main.getName());
    Collections.addAll(builder.command(), arguments);
    final Process child = builder.redirectErrorStream(true).start();
    final String output =
        new String(child.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
    assertEquals(0, child.waitFor(), output);
    return output;
  }
}
