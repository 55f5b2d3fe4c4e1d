package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.*;
import java.util.concurrent.*;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
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
    assertReceived("A open, A data 0, A close 0, A open, A data 1, A close 0");
  }

  /** Releases one of the objects, with which some others go. */
  @ParameterizedTest
  @CsvSource({"0, 0, 1", "1, 0, 2", "2, 2, 3", "3, 0, 4", "4, 0, 5"})
  void releasedObjectsRefuseEveryUse(int released, int from, int to) throws Exception {
    final Publisher publisher = publish(SCHEME);
    final List<AutoCloseable> all = List.of(publisher.newMessage("quote"), publisher,
        listen("", recorder("A")), connection, environment);
    all.get(released).close();
    all.get(released).close();
    for (AutoCloseable each : all.subList(from, to)) assertUnusable(each);
    if (all.get(released) != environment) environment.newConnection("").open("");
    for (AutoCloseable each : all) each.close();
    assertReceived("A close 0");
  }

  @Test
  void shutObjectsOpenAgainAndChangesOfStateAreMadeOnce() {
    final Listener listener = listen("", recorder("A"));
    final Publisher publisher = publish(SCHEME);
    final int code = ResultCode.INVALID_STATE;
    for (int opening = 1; opening <= 2; ++opening) {
      assertRefused(code, "Connection.open", () -> connection.open(""));
      assertRefused(code, "Listener.open", () -> listener.open(""));
      assertRefused(code, "Publisher.open", () -> publisher.open(""));
      post(publisher, opening);
      connection.process(0);
      assertEquals(2, listener.getState() & publisher.getState() & connection.getState());
      listener.shut();
      publisher.shut();
      connection.shut();
      assertEquals(0, listener.getState() | publisher.getState() | connection.getState());
      assertRefused(code, "Listener.shut", listener::shut);
      assertRefused(code, "Publisher.shut", publisher::shut);
      assertRefused(code, "Connection.shut", connection::shut);
      connection.open("");
      publisher.open("");
      listener.open("");
    }
    assertReceived("A open, A data 1, A close 0, A open, A data 2, A close 0");
  }

  @Test
  void whatFailedLeavesTheWayFree() {
    final int code = ResultCode.INVALID_ARGUMENT;
    assertRefused(ResultCode.INVALID_STATE, "Environment.open", () -> Environment.open("bad"));
    assertEquals(2, connection.getState(), "the open one is left alone");
    assertRefused(code, "Environment.newConnection", () -> environment.newConnection("bad"));
    assertRefused(code, "Connection.newListener", () -> listen("bad", recorder("A")));
    assertRefused(code, "Connection.newPublisher", () -> publish("bad"));
    assertRefused(code, "Publisher.newMessage", () -> publish(SCHEME).newMessage("unknown"));
    environment.close();
    assertRefused(code, "Environment.open", () -> Environment.open("bad"));
    Environment.open("").close();
  }

  /** What follows the first data message of A when its subscriber releases something. */
  @ParameterizedTest
  @CsvSource({
      "A,          'A close 0, B data 1, B data 2'",
      "B,          'B close 0, A data 2'",
      "connection, 'A close 0, B close 0'",
      "publisher,  'B data 1, A data 2, B data 2, A close 1, B close 1'"})
  void anythingButTheEnvironmentCanBeReleasedInsideOnMessage(String released, String rest) {
    final Publisher publisher = publish(SCHEME);
    final AutoCloseable target = Map.of("A", listen("", recorder("A")),
        "B", listen("", recorder("B")), "connection", connection, "publisher", publisher)
        .get(released);
    onClose = listener -> {
      if (target != publisher) assertThrows(IllegalStateException.class, listener::getState);
      listener.close();
    };
    onFirstData = () -> {
      assertThrows(IllegalStateException.class, environment::close);
      environment.newConnection("");
      assertDoesNotThrow(target::close);
      assertUnusable(target);
    };
    post(publisher, 1, 2);
    connection.process(0);
    if (target == publisher) connection.process(0);
    assertReceived("A open, B open, A data 1, " + rest);
  }

  @Test
  void closingWaitsForTheThreadInsideAndPostingDoesNot() throws Exception {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    final FutureTask<Void> closing = new FutureTask<>(connection::close, null);
    final Thread closer = new Thread(closing);
    onFirstData = () -> {
      CompletableFuture.runAsync(() -> post(publisher, 3)).orTimeout(30, TimeUnit.SECONDS).join();
      closer.start();
      while (closer.isAlive() && closer.getState() != Thread.State.WAITING) Thread.onSpinWait();
      assertEquals(Thread.State.WAITING, closer.getState());
    };
    post(publisher, 1, 2);
    connection.process(0);
    assertThrows(IllegalStateException.class, () -> connection.process(0));
    closing.get();
    assertReceived("A open, A data 1, A data 2, A close 0");
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

  private void assertReceived(String expected) {
    assertEquals(expected, String.join(", ", received));
  }
}
