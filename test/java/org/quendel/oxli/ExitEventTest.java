package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.*;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ExitEventTest {
  @TempDir Path directory;

  private final List<Thread> called = new CopyOnWriteArrayList<>();
  private final IExitEventHandler recorder = () -> called.add(Thread.currentThread());

  /** From then on the gateway has someone to call, whenever it raises the event. */
  @BeforeAll
  static void register() {
    try (Environment environment = Environment.open("")) {
      environment.onExit(null);
    }
  }

  @Test
  void onlyTheLastHandlerIsCalledOnTheGatewaysThreadAndMayThrow() throws Exception {
    final String log = raise(() -> {
      throw new LinkageError("thrown on purpose");
    });
    assertTrue(log.contains("error: exit event handler threw java.lang.LinkageError"), log);

    raise(recorder, null);
    assertEquals(List.of(), called);
    try (Environment environment = Environment.open("")) {
      environment.onExit(recorder);
    }
    raise();
    assertEquals(List.of(), called);
    raise(() -> called.add(null), recorder);
    assertEquals(1, called.size());
    assertNotSame(Thread.currentThread(), called.get(0));
    called.get(0).join();
  }

  /** Sets the handlers one after the other, waits for the event, and gives the gateway's log. */
  private String raise(IExitEventHandler... handlers) throws Exception {
    for (int delay = 50;; delay *= 4) {
      final Path log = Files.createTempFile(directory, "gateway", ".log");
      called.clear();
      try (Environment environment =
          Environment.open("exit_after=" + delay + ";log=file:" + log)) {
        for (IExitEventHandler handler : handlers) environment.onExit(handler);
        final boolean late = Files.readString(log).contains("[ExitEvent]");
        while (!Files.readString(log).contains("After Invoke java onExitEvent")) Thread.yield();
        if (!late) return Files.readString(log);
      }
    }
  }
}
