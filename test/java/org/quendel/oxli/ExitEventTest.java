package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.ref.WeakReference;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class ExitEventTest {
  private final List<Thread> called = new ArrayList<>();

  static {
    System.load(System.getProperty("oxli.test.post_hook"));
  }

  /** Raises the exit event on a new thread and waits for the handler. */
  private static native void raiseExit();

  @Test
  void onlyTheLastHandlerIsCalledAndMayThrow(@TempDir Path directory) throws Exception {
    final Path log = directory.resolve("log");
    try (Environment environment = Environment.open("log=file:" + log)) {
      environment.onExit(() -> {
        throw new LinkageError("thrown on purpose");
      });
      raiseExit();
      final String lines = Files.readString(log);
      assertTrue(lines.contains("error: exit event handler threw java.lang.LinkageError"), lines);
      environment.onExit(() -> called.add(Thread.currentThread()));
      raiseExit();
      called.get(0).join();
      environment.onExit(null);
      raiseExit();
      environment.onExit(() -> called.add(null));
    }
    try (Environment environment = Environment.open("")) {
      raiseExit();
      environment.onExit(null);
      raiseExit();
    }
    assertEquals(1, called.size());
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
      while (!isClosed.get() && !GatewayTest.isIn(other, "env_close")) Thread.onSpinWait();
      environment.close();
    });
    inHandler.await();
    environment.close();
    isClosed.set(true);
    Environment.open("").close();
  }

  @Test
  void closedEnvironmentDoesNotReferenceTheHandler() {
    final List<IExitEventHandler> handlers = new ArrayList<>(List.of(called::clear));
    final WeakReference<IExitEventHandler> handler = new WeakReference<>(handlers.get(0));
    try (Environment environment = Environment.open("")) {
      environment.onExit(handlers.remove(0));
    }
    while (handler.get() != null) System.gc();
  }
}
