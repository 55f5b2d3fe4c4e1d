package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.*;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class LoadingTest {
  private static final String REMEDY = "\nset -Doxli.library.path=DIRECTORY to the directory that"
      + " contains liboxli_jni.so; liboxli.so is searched for there and in its parent directory\n"
      + "failed again\n";

  @TempDir Path elsewhere;

  /** The program of the child virtual machines. */
  static final class Child {
    private Child() {}

    public static void main(String[] args) {
      try {
        Environment.open("").close();
        System.out.println("opened");
      } catch (UnsatisfiedLinkError e) {
        System.out.println(e.getMessage());
        final List<Runnable> calls = List.of(
            () -> Environment.logInfo(""), () -> Environment.logInfo(""),
            () -> Environment.open(""));
        for (Runnable call : calls) {
          final Error again = assertThrows(UnsatisfiedLinkError.class, call::run);
          assertEquals(e.getMessage(), again.getMessage());
          assertSame(e, again.getCause());
        }
        System.out.println("failed again");
      }
    }
  }

  @Test
  void libraryIsLoadedFromThePropertyOrFromTheFolderOfTheJar() throws Exception {
    final Path directory = ChildVm.JAR.getParent();
    assertEquals("opened\n", run(copy(), "-Doxli.library.path=" + directory));
    assertEquals("opened\n", run(ChildVm.JAR, "-Djava.library.path=" + elsewhere));
    assertEquals("opened\n", run(ChildVm.JAR, "-Doxli.library.path="));
  }

  @Test
  void messageNamesEachPlaceAndTheRemedy() throws Exception {
    final String every = run(copy(), "-Djava.library.path=/nonexistent");
    assertTrue(every.contains("\n  java.library.path=/nonexistent: "), every);
    assertTrue(every.contains("\n  " + elsewhere.resolve(ChildVm.LIBRARY) + ": "), every);
    assertTrue(every.endsWith(REMEDY), every);

    final String only = run(ChildVm.JAR, "-Doxli.library.path=" + elsewhere,
        "-Djava.library.path=" + ChildVm.JAR.getParent());
    assertTrue(only.startsWith("cannot load the native library oxli_jni:\n  "
        + elsewhere.resolve(ChildVm.LIBRARY) + ": "), only);
    assertFalse(only.contains("java.library.path"), only);
    assertTrue(only.endsWith(REMEDY), only);
  }

  @Test
  void messageForDeniedNativeAccessNamesTheOption() throws Exception {
    final boolean canBeDenied = Runtime.version().feature() >= 24;
    assertEquals(canBeDenied ? "cannot load the native library oxli_jni: the virtual machine denies"
            + " native access; start it with --enable-native-access=ALL-UNNAMED\nfailed again\n"
            : "opened\n",
        run(ChildVm.JAR, canBeDenied ? ChildVm.DENY : "-Doxli.library.path="));
  }

  private static String run(Path jar, String... options) throws Exception {
    return new ChildVm(options).run(jar, Child.class);
  }

  private Path copy() throws Exception {
    return Files.copy(ChildVm.JAR, elsewhere.resolve("oxli.jar"));
  }
}
