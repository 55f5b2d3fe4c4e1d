package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ExitEventTest {
  @TempDir Path directory;

  private final List<String> called = new CopyOnWriteArrayList<>();

  /** From then on the gateway has someone to call, whenever it raises the event. */
  @BeforeAll
  static void register() {
    try (Environment environment = Environment.open("")) {
      environment.onExit(null);
    }
  }

  @Test
  void handlerIsCalledOnTheGatewaysThread() throws Exception {
    final CountDownLatch latch = new CountDownLatch(1);
    final AtomicReference<Thread> caller = new AtomicReference<>();
    raise(() -> {
      caller.set(Thread.currentThread());
      latch.countDown();
    });
    latch.await();
    assertNotSame(Thread.currentThread(), caller.get());
    caller.get().join();
  }

  @Test
  void throwingHandlerDoesNoHarm() throws Exception {
    final String log = raise(() -> {
      throw new LinkageError("thrown on purpose");
    });
    assertTrue(log.contains("error: exit event handler threw java.lang.LinkageError"), log);
    raise(() -> called.add("next"));
    assertEquals(List.of("next"), called);
  }

  @Test
  void onlyTheLastHandlerIsCalled() throws Exception {
    raise(() -> called.add("first"), () -> called.add("second"));
    assertEquals(List.of("second"), called);
    raise(() -> called.add("first"), null);
    assertEquals(List.of(), called);
    try (Environment environment = Environment.open("")) {
      environment.onExit(() -> called.add("of an environment that has ended"));
    }
    raise();
    assertEquals(List.of(), called);
  }

  /** Sets the handlers one after the other, waits for the event, and gives the gateway's log. */
  private String raise(IExitEventHandler... handlers) throws IOException {
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
