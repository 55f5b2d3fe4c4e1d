package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.ref.WeakReference;
import java.nio.file.*;
import java.util.List;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class ExitEventTest {
  @TempDir Path directory;

  private final List<Thread> called = new CopyOnWriteArrayList<>();
  private final IExitEventHandler recorder = () -> called.add(Thread.currentThread());

  @Test
  void onlyTheLastHandlerIsCalledAndMayThrow() throws Exception {
    final String log = raise(() -> {
      throw new LinkageError("thrown on purpose");
    });
    assertTrue(log.contains("error: exit event handler threw java.lang.LinkageError"), log);

    raise(recorder, null);
    assertEquals(List.of(), called);
    try (Environment environment = Environment.open("")) {
      environment.onExit(recorder);
    }
    raise((IExitEventHandler) null);
    assertEquals(List.of(), called);
    raise(() -> called.add(null), recorder);
    assertEquals(1, called.size());
    assertNotSame(Thread.currentThread(), called.get(0));
    called.get(0).join();
  }

  /** Another thread closes the environment, too; the gateway makes it wait for the handler. */
  @ParameterizedTest
  @ValueSource(booleans = {true, false})
  void handlerMayCloseTheEnvironment(boolean isFirst) throws Exception {
    final Thread other = Thread.currentThread();
    final CountDownLatch inHandler = new CountDownLatch(1);
    final AtomicBoolean isClosed = new AtomicBoolean();
    final Environment environment = Environment.open("exit_after=200");
    environment.onExit(() -> {
      if (isFirst) environment.close();
      inHandler.countDown();
      while (!isClosed.get() && !LifecycleTest.isIn(other, "env_close")) Thread.onSpinWait();
      environment.close();
    });
    inHandler.await();
    environment.close();
    isClosed.set(true);
    Environment.open("").close();
  }

  @Test
  void closedEnvironmentDoesNotReferenceTheHandler() throws Exception {
    final WeakReference<IExitEventHandler> handler = closeWithHandler();
    while (handler.get() != null) System.gc();
  }

  private WeakReference<IExitEventHandler> closeWithHandler() {
    try (Environment environment = Environment.open("")) {
      final IExitEventHandler handler = () -> called.add(null);
      environment.onExit(handler);
      return new WeakReference<>(handler);
    }
  }

  /** Sets the handlers in turn, waits for the exit event, and returns the gateway's log. */
  private String raise(IExitEventHandler... handlers) throws Exception {
    for (int delay = 50;; delay *= 4) {
      final Path log = Files.createTempFile(directory, "gateway", ".log");
      called.clear();
      try (Environment environment =
          Environment.open("exit_after=" + delay + ";log=file:" + log)) {
        for (IExitEventHandler handler : handlers) environment.onExit(handler);
        final boolean isLate = Files.readString(log).contains("[ExitEvent]");
        // The gateway discards an event that it raises before the first handler is set.
        final long end = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(delay + 5000);
        String lines;
        do {
          lines = Files.readString(log);
          Thread.sleep(1);
        } while (!lines.contains("After Invoke java onExitEvent") && System.nanoTime() < end);
        if (!isLate && lines.contains("After Invoke java onExitEvent")) return lines;
      }
    }
  }
}
