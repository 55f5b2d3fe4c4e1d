package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.lang.ref.PhantomReference;
import java.lang.ref.Reference;
import java.lang.ref.ReferenceQueue;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.FutureTask;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;
import org.quendel.oxli.messages.CloseMessage;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.OpenMessage;

class LifecycleTest extends GatewayTest {
  private final List<String> received = new ArrayList<>();
  private Runnable onFirstData = () -> {};

  @Test
  void tryWithResourcesReleasesAll() {
    environment.close();
    for (int i = 0; i < 2; ++i) {
      final Listener listened;
      final Publisher published;
      final Message made;
      try (Environment env = Environment.open("");
          Connection conn = env.newConnection("");
          Listener listener = conn.newListener("", recorder("A"));
          Publisher publisher = conn.newPublisher(SCHEME)) {
        conn.open("");
        listener.open("");
        publisher.open("");
        try (DataMessage message = publisher.newMessage("quote")) {
          publisher.post(message);
          made = message;
        }
        conn.process(0);
        listened = listener;
        published = publisher;
      }
      assertThrows(IllegalStateException.class, made::getData);
      assertThrows(IllegalStateException.class, published::getState);
      assertThrows(IllegalStateException.class, listened::getState);
    }
    final List<String> once = List.of("A open", "A data 0", "A close 1");
    assertEquals(2 * once.size(), received.size(), received::toString);
  }

  /** Whatever is released first: the rest goes with it or after it, and nothing is left usable. */
  @ParameterizedTest
  @ValueSource(strings = {"message", "connection", "environment"})
  void releasedObjectsRefuseEveryUse(String first) {
    final Listener listener = listen("", recorder("A"));
    final Publisher publisher = publish(SCHEME);
    final DataMessage message = publisher.newMessage("quote");
    if (first.equals("connection")) connection.close();
    if (first.equals("environment")) environment.close();
    for (int i = 0; i < 2; ++i) {
      message.close();
      publisher.close();
      listener.close();
      connection.close();
    }
    assertEnded(message);
    assertUnusable(publisher, Publisher.class, "close");
    assertUnusable(listener, Listener.class, "close");
    assertUnusable(connection, Connection.class, "close");
    environment.close();
    environment.close();
    assertUnusable(environment, Environment.class, "close");
  }

  @Test
  void closingTheConnectionReleasesItsObjectsOnly() {
    final Connection other = environment.newConnection("");
    other.open("");
    final Listener listener = listen("", recorder("A"));
    final Message message = publish(SCHEME).newMessage("quote");
    connection.close();
    assertThrows(IllegalStateException.class, listener::getState);
    assertThrows(IllegalStateException.class, message::getData);
    other.process(0);
    assertEquals(List.of("A close 0"), received);
  }

  @Test
  void shutObjectsOpenAgain() {
    connection.shut();
    final Listener listener = connection.newListener("stream=s", recorder("A"));
    final Publisher publisher = connection.newPublisher("stream=s;" + SCHEME);
    DataMessage lasting = null;
    Scheme earlier = null;
    for (int opening = 1; opening <= 3; ++opening) {
      received.clear();
      assertStates(0, connection, listener, publisher);
      connection.open("");
      publisher.open("");
      listener.open("");
      if (lasting == null) lasting = publisher.newMessage("quote");
      lasting.getData().putLong(VOLUME, opening);
      publisher.post(lasting);
      connection.process(0);
      assertStates(2, connection, listener, publisher);
      assertSame(listener.getScheme(), listener.getScheme());
      assertSame(publisher.getScheme(), publisher.getScheme());
      assertNotSame(earlier, listener.getScheme());
      earlier = listener.getScheme();
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
    assertRefused(code, "Environment.open", () -> Environment.open(""));
    assertRefused(code, "Connection.open", () -> connection.open(""));
    assertRefused(code, "Listener.open", () -> listener.open(""));
    assertRefused(code, "Publisher.open", () -> publisher.open(""));
    connection.process(0);
    assertStates(2, connection, listener, publisher);
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
    onFirstData = () -> {
      try {
        target.close();
      } catch (Exception e) {
        throw new AssertionError(e);
      }
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
    assertRefused(code, "Connection.newPublisher", () -> connection.newPublisher("scheme=?{type=x}"));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessage("unknown"));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessageById(8));
    assertRefused(code, "Publisher.newMessage", () -> publisher.newMessageByIndex(-1));

    final ReferenceQueue<ISubscriber> gone = new ReferenceQueue<>();
    final List<Reference<ISubscriber>> watched =
        List.of(subscribe("malformed", gone), subscribe("", gone));
    for (int found = 0, tries = 0; found < watched.size(); ++tries) {
      assertEquals(true, tries < 200, "a subscriber is still held");
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
    assertEquals(List.of("A open", "A data 1", "A data 2"), received.subList(0, 3));
    assertThrows(IllegalStateException.class, () -> connection.process(0));
    closing.get();
    assertEquals("A close 0", received.get(3));
  }

  @Test
  void postsDoNotWaitForTheThreadInside() {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    onFirstData = () -> {
      final FutureTask<Void> posting = new FutureTask<>(() -> post(publisher, 2), null);
      new Thread(posting).start();
      try {
        posting.get(30, TimeUnit.SECONDS);
      } catch (Exception e) {
        throw new AssertionError(e);
      }
    };
    post(publisher, 1);
    connection.process(0);
    connection.process(0);
    assertEquals(List.of("A open", "A data 1", "A data 2"), received);
  }

  private ISubscriber recorder(String name) {
    return (conn, lsn, message) -> {
      assertNotNull(conn);
      if (message instanceof OpenMessage) received.add(name + " open");
      if (message instanceof CloseMessage) {
        received.add(name + " close " + ((CloseMessage) message).getReason());
      }
      if (message instanceof DataMessage) {
        received.add(name + " data " + message.getData().getLong(VOLUME));
        final Runnable action = onFirstData;
        onFirstData = () -> {};
        action.run();
        // Still the delivered one, whatever has been released.
        final long volume = message.getData().getLong(VOLUME);
        assertEquals(true, received.contains(name + " data " + volume));
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

  private static void assertStates(int state, Connection conn, Listener lsn, Publisher pub) {
    assertEquals(List.of(state, state, state),
        List.of(conn.getState(), lsn.getState(), pub.getState()));
  }
}
