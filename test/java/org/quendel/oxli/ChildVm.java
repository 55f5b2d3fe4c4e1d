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

  private final List<String> command = new ArrayList<>();
  private final Map<String, String> environment = new HashMap<>();

  ChildVm(String... options) {
    command.addAll(List.of(
        Path.of(System.getProperty("java.home"), "bin", "java").toString(), "-Xcheck:jni"));
    command.addAll(List.of(options));
    // Newer virtual machines warn if native access is not enabled.
    if (Runtime.version().feature() >= 22 && !List.of(options).contains(DENY)) {
      command.add("--enable-native-access=ALL-UNNAMED");
    }
  }

  ChildVm with(String variable, String value) {
    environment.put(variable, value);
    return this;
  }

  /** Runs the program, expects exit code 0, and returns its standard output and standard error. */
  String run(Path jar, Class<?> main, String... arguments) throws Exception {
    command.addAll(List.of("-cp", jar + File.pathSeparator + System.getProperty("java.class.path"),
        main.getName()));
    command.addAll(List.of(arguments));
    final ProcessBuilder builder = new ProcessBuilder(command).redirectErrorStream(true);
    // If one of these variables is set, the virtual machine writes a line that names it.
    builder.environment().keySet()
        .removeAll(List.of("JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"));
    builder.environment().putAll(environment);
    final Process child = builder.start();
    final String output =
        new String(child.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
    assertEquals(0, child.waitFor(), output);
    return output;
  }
}
