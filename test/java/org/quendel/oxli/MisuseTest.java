package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.*;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvFileSource;

class MisuseTest {
  @TempDir Path elsewhere;

  /** Runs the programs of {@link Misuse}. The file contains what each of them prints. */
  @ParameterizedTest
  @CsvFileSource(resources = "misuse.csv")
  void endsInAnException(String program, String output) throws Exception {
    final Path directory = ChildVm.JAR.getParent();
    Files.copy(directory.resolve(ChildVm.LIBRARY), elsewhere.resolve(ChildVm.LIBRARY));
    final ChildVm child = new ChildVm("-Doxli.library.path=" + directory);
    child.environment.put("LD_PRELOAD", System.getProperty("oxli.test.post_hook"));
    assertEquals(output + '\n',
        child.run(ChildVm.JAR, Misuse.class, program, elsewhere.toString()));
  }
}
