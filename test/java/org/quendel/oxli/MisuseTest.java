package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.params.provider.Arguments.arguments;

import java.nio.file.*;
import java.util.stream.Stream;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.*;

/** Runs the programs of {@link Misuse} and compares what they print. */
class MisuseTest {
  private static final String ILLEGAL_STATE = "java.lang.IllegalStateException: ";
  private static final String OPEN_ALREADY = "org.quendel.oxli.OxliException: Environment.open:"
      + " OX_ERR_INVALIDSTATE: an environment is open in this process (0x20005)";
  private static final String SHARED = ": both are delivered in the same object, because the id of"
      + " one is the index or the id of the other";

  @TempDir Path elsewhere;

  static Stream<Arguments> programs() {
    return Stream.of(
        arguments("postForeignAddressInMessageOfOwnTypeCode",
            ILLEGAL_STATE + "field z (z) of Message odd contains what setZBlock did not write"),
        arguments("overwriteDeliveredAddress", "java.nio.ReadOnlyBufferException"),
        arguments("useDeliveredMessageOnOtherThread", ILLEGAL_STATE + "DataMessage quote was"
            + " delivered: only the thread inside onMessage may use it, until onMessage returns;"
            + " copy() gives one to keep or to pass on"),
        arguments("readBlockOfOtherKindWithSameId",
            ILLEGAL_STATE + "the message is of a or of b" + SHARED),
        arguments("readBlockOfOtherKindWhoseIdIsTheIndex",
            "empty\n" + ILLEGAL_STATE + "the message is of quote or of empty" + SHARED),
        arguments("postForeignAddressWithEndlessScheme",
            "\nJNI Exception at get hints[]\n\n\nJNI Exception at set message desc array element\n\n"
                + "org.quendel.oxli.OxliException: Publisher.getScheme (publisher stream=endless): "
                + "the scheme exceeds a limit; a line on standard error names the step (0x20000)"),
        arguments("throwCheckedExceptionWhileClosing", "java.io.IOException: own"),
        arguments("openWithSecondClassLoader",
            OPEN_ALREADY + "\nfirst one: state ACTIVE\n" + OPEN_ALREADY),
        arguments("reloadAfterExitHandler",
            "java.util.NoSuchElementException: no class loader is left"),
        arguments("closeMessageInsideItsPost",
            "released\n[1]\n" + ILLEGAL_STATE + "DataMessage quote is closed"),
        arguments("closePublisherInsideItsPost", "true\n" + ILLEGAL_STATE
            + "connection cannot be closed inside a post of its publishers\n" + ILLEGAL_STATE
            + "environment cannot be closed inside onMessage or a post\nreleased\n" + ILLEGAL_STATE
            + "publisher is closed"));
  }

  @ParameterizedTest
  @MethodSource("programs")
  void endsInAnException(String program, String output) throws Exception {
    final Path directory = ChildVm.JAR.getParent();
    Files.copy(directory.resolve(ChildVm.LIBRARY), elsewhere.resolve(ChildVm.LIBRARY));
    final ChildVm child = new ChildVm("-Doxli.library.path=" + directory)
        .with("LD_PRELOAD", System.getProperty("oxli.test.post_hook"));
    assertEquals(output + '\n', child.run(
        ChildVm.JAR, Misuse.class, program, ChildVm.JAR.toString(), elsewhere.toString()));
  }
}
