package org.quendel.oxli;

import static java.util.concurrent.TimeUnit.SECONDS;
import static org.junit.jupiter.api.Assertions.*;

import java.lang.ref.PhantomReference;
import java.lang.ref.Reference;
import java.lang.ref.ReferenceQueue;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.FutureTask;
import java.util.function.Consumer;
import java.util.function.Supplier;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;
import org.quendel.oxli.messages.*;

class LifecycleTest extends GatewayTest {
  private final List<String> received = new ArrayList<>();
  private Runnable onFirstData = () -> {};
  private Consumer<Listener> onClose = listener -> {};

  @Test
  void tryWithResourcesReleasesAll() {
    environment.close();
    for (int i = 0; i < 2; ++i) {
      try (Environment env = Environment.open("");
          Connection conn = env.newConnection("");
          Listener listener = conn.newListener("", recorder("A"));
          Publisher publisher = conn.newPublisher(SCHEME)) {
        conn.open("");
        listener.open("");
        publisher.open("");
        post(publisher, i);
        conn.process(0);
      }
    }
    assertEquals(List.of("A open", "A data 0", "A close 0", "A open", "A data 1", "A close 0"),
        received);
  }

  /** Whatever goes first: the rest goes with it or can still be closed, and nothing is usable. */
  @ParameterizedTest
  @ValueSource(strings = {"message", "connection", "environment"})
  void releasedObjectsRefuseEveryUse(String first) {
    final Connection other = environment.newConnection("");
    final Listener listener = listen("", recorder("A"));
    final Publisher publisher = publish(SCHEME);
    final DataMessage message = publisher.newMessage("quote");
    final List<Executable> releases =
        List.of(message::close, publisher::close, listener::close, connection::close);
    if (first.equals("connection")) connection.close();
    if (first.equals("environment")) environment.close();
    if (first.equals("message")) {
      for (Executable release : releases) assertDoesNotThrow(release);
    }
    assertEnded(message);
    assertUnusable(publisher, Publisher.class, "close");
    assertUnusable(listener, Listener.class, "close");
    assertUnusable(connection, Connection.class, "close");
    for (Executable release : releases) assertDoesNotThrow(release);
    assertEquals(List.of("A close 0"), received);
    if (!first.equals("environment")) other.open("");
    environment.close();
    environment.close();
    assertUnusable(environment, Environment.class, "close");
  }

  @Test
  void shutObjectsOpenAgain() {
    connection.shut();
    final Listener listener = connection.newListener("stream=s", recorder("A"));
    final Publisher publisher = connection.newPublisher("stream=s;" + SCHEME);
    final Supplier<List<Integer>> states =
        () -> List.of(connection.getState(), listener.getState(), publisher.getState());
    DataMessage lasting = null;
    final Set<Scheme> schemes = new HashSet<>();
    for (int opening = 1; opening <= 3; ++opening) {
      received.clear();
      assertEquals(List.of(0, 0, 0), states.get());
      connection.open("");
      publisher.open("");
      listener.open("");
      if (lasting == null) lasting = publisher.newMessage("quote");
      lasting.getData().putLong(VOLUME, opening);
      publisher.post(lasting);
      connection.process(0);
      assertEquals(List.of(2, 2, 2), states.get());
      assertSame(listener.getScheme(), listener.getScheme());
      assertSame(publisher.getScheme(), publisher.getScheme());
      assertTrue(schemes.add(listener.getScheme()) && schemes.add(publisher.getScheme()));
      listener.shut();
      publisher.shut();
      connection.shut();
      assertEquals(List.of("A open", "A data " + opening, "A close 0"), received);
    }
  }

  @Test
  void openingTwiceAndShuttingTwiceIsRefused() {
    final Listener listener = listen("", recorder("A"));
    final Publisher publisher = publish(SCHEME);
    final int code = ResultCode.INVALID_STATE;
    assertRefused(code, "Connection.open", () -> connection.open(""));
    assertRefused(code, "Listener.open", () -> listener.open(""));
    assertRefused(code, "Publisher.open", () -> publisher.open(""));
    listener.shut();
    publisher.shut();
    connection.shut();
    assertRefused(code, "Listener.shut", listener::shut);
    assertRefused(code, "Publisher.shut", publisher::shut);
    assertRefused(code, "Connection.shut", connection::shut);
  }

  @ParameterizedTest
  @ValueSource(strings = {"malformed", "log=nowhere", "exit_after=soon", "nested=?{"})
  void failedEnvironmentLeavesTheWayFree(String settings) {
    final int state = ResultCode.INVALID_STATE;
    assertRefused(state, "Environment.open", () -> Environment.open(settings));
    assertEquals(2, connection.getState(), "the open one is left alone");
    environment.close();
    final int argument = ResultCode.INVALID_ARGUMENT;
    assertRefused(argument, "Environment.open", () -> Environment.open(settings));
    Environment.open("").close();
  }

  @Test
  void environmentCannotBeClosedInsideOnMessage() {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    onFirstData = () -> assertThrows(IllegalStateException.class, environment::close);
    post(publisher, 1, 2);
    connection.process(0);
    environment.newConnection("");
    assertEquals(List.of("A open", "A data 1", "A data 2"), received);
  }

  /** What follows the first data message of A when its subscriber releases something. */
  @ParameterizedTest
  @CsvSource({
      "A,          'A close 0, B data 1, B data 2'",
      "B,          'B close 0, A data 2'",
      "connection, 'A close 0, B close 0'",
      "publisher,  'B data 1, A data 2, B data 2, A close 1, B close 1'"})
  void anythingCanBeReleasedInsideOnMessage(String released, String rest) {
    final Publisher publisher = publish(SCHEME);
    final Listener a = listen("", recorder("A"));
    final Listener b = listen("", recorder("B"));
    final AutoCloseable target = released.equals("A") ? a
        : released.equals("B") ? b : released.equals("publisher") ? publisher : connection;
    onClose = listener -> {
      if (!released.equals("publisher")) {
        assertThrows(IllegalStateException.class, () -> listener.open(""));
      }
      listener.close();
    };
    onFirstData = () -> {
      assertDoesNotThrow(target::close);
      assertThrows(IllegalStateException.class, () -> {
        if (target instanceof Listener) ((Listener) target).shut();
        if (target instanceof Publisher) ((Publisher) target).shut();
        if (target instanceof Connection) connection.newListener("", recorder("C"));
      });
    };
    post(publisher, 1, 2);
    connection.process(0);
    if (released.equals("publisher")) connection.process(0);
    assertEquals("A open, B open, A data 1, " + rest, String.join(", ", received));
  }

  @Test
  void failedCreationLeavesNothing() throws InterruptedException {
    final int code = ResultCode.INVALID_ARGUMENT;
    final Publisher publisher = publish(SCHEME);
    assertRefused(code, "Environment.newConnection", () -> environment.newConnection("malformed"));
    assertRefused(code, "Connection.newPublisher", () -> connection.newPublisher("malformed"));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessage("unknown"));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessageById(8));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessageByIndex(-1));

    final ReferenceQueue<ISubscriber> gone = new ReferenceQueue<>();
    final List<Reference<ISubscriber>> watched =
        List.of(subscribe("malformed", gone), subscribe("", gone));
    for (int found = 0, tries = 0; found < watched.size(); ++tries) {
      assertTrue(tries < 200, "a subscriber is still held");
      System.gc();
      if (gone.remove(50) != null) ++found;
    }
    connection.process(0);
  }

  /** A listener that is refused or released again, and nothing but a watch over its subscriber. */
  private Reference<ISubscriber> subscribe(String settings, ReferenceQueue<ISubscriber> gone) {
    final List<String> captured = new ArrayList<>();
    final ISubscriber subscriber = (conn, lsn, message) -> captured.size();
    try (Listener listener = connection.newListener(settings, subscriber)) {
      listener.open("");
    } catch (OxliException e) {
      assertEquals("malformed", settings);
    }
    return new PhantomReference<>(subscriber, gone);
  }

  @Test
  void closingWaitsForTheThreadInside() throws Exception {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    final FutureTask<Void> closing = new FutureTask<>(connection::close, null);
    final Thread closer = new Thread(closing);
    onFirstData = () -> {
      closer.start();
      while (closer.isAlive() && closer.getState() != Thread.State.WAITING) Thread.onSpinWait();
      assertEquals(Thread.State.WAITING, closer.getState());
    };
    post(publisher, 1, 2);
    connection.process(0);
    assertThrows(IllegalStateException.class, () -> connection.process(0));
    closing.get();
    assertEquals(List.of("A open", "A data 1", "A data 2", "A close 0"), received);
  }

  @Test
  void postsDoNotWaitForTheThreadInside() {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    onFirstData = () ->
        CompletableFuture.runAsync(() -> post(publisher, 2)).orTimeout(30, SECONDS).join();
    post(publisher, 1);
    connection.process(0);
    connection.process(0);
    assertEquals(List.of("A open", "A data 1", "A data 2"), received);
  }

  private ISubscriber recorder(String name) {
    return (conn, lsn, message) -> {
      if (message instanceof OpenMessage) received.add(name + " open");
      if (message instanceof CloseMessage) {
        received.add(name + " close " + ((CloseMessage) message).getReason());
        onClose.accept(lsn);
      }
      if (message instanceof DataMessage) {
        final long volume = message.getData().getLong(VOLUME);
        received.add(name + " data " + volume);
        final Runnable action = onFirstData;
        onFirstData = () -> {};
        action.run();
        assertEquals(volume, message.getData().getLong(VOLUME), "whatever has been released");
      }
      return 0;
    };
  }

  private static void post(Publisher publisher, long... volumes) {
    try (DataMessage message = publisher.newMessage("quote")) {
      for (long volume : volumes) {
        message.getData().putLong(VOLUME, volume);
        publisher.post(message);
      }
    }
  }
}
