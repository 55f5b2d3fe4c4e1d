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

  /** Closes one of the objects; the objects that it owns are closed, too. */
  @ParameterizedTest
  @CsvSource({"0, 0, 1", "1, 0, 2", "2, 2, 3", "3, 0, 4", "4, 0, 5"})
  void closedObjectsRefuseEveryCall(int released, int from, int to) throws Exception {
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
  void shutObjectsCanBeOpenedAgain() {
    final Listener listener = listen("", recorder("A"));
    final Publisher publisher = publish(SCHEME);
    final int code = ResultCode.INVALID_STATE;
    for (int opening = 1; opening <= 2; ++opening) {
      assertRefused(code, "Connection.open", () -> connection.open(""));
      final Exception refused = assertRefused(
          code, "Listener.open (listener): OX_ERR_INVALIDSTATE: ", () -> listener.open(""));
      assertTrue(refused.getMessage().matches(".* .0x20005.; .* log=stderr"), refused::getMessage);
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
  void eachOpeningHasItsOwnScheme() {
    final String other = "scheme=?{messages=other;message.other=?{fields=n:i4}}";
    final List<Publisher> owners =
        List.of(publish("stream=a;" + SCHEME), publish("stream=b;" + other));
    final Publisher publisher = publish("stream=a");
    final Listener listener = listen("stream=a", recorder("A"));
    assertEquals(publisher.getScheme().toString(), listener.getScheme().toString());
    connection.shut();
    connection.open("");
    for (Publisher owner : owners) owner.open("");
    publisher.open("stream=b");
    listener.open("stream=b");
    assertNotNull(publisher.getScheme().getMessage("other"));
    assertNotNull(listener.getScheme().getMessage("other"));
  }

  @Test
  void failedCallsChangeNothing() {
    final int code = ResultCode.INVALID_ARGUMENT;
    assertRefused(ResultCode.INVALID_STATE, "Environment.open", () -> Environment.open("bad"));
    assertEquals(2, connection.getState(), "the open environment is not changed");
    assertRefused(code, "Environment.newConnection", () -> environment.newConnection("bad"));
    assertRefused(code, "Connection.newListener", () -> listen("bad", recorder("A")));
    assertRefused(code, "Connection.newPublisher", () -> publish("bad"));
    assertRefused(code, "Publisher.newMessage", () -> publish(SCHEME).newMessage("unknown"));
    environment.close();
    assertRefused(code, "Environment.open", () -> Environment.open("bad"));
    Environment.open("").close();
  }

  /** The subscriber of A closes an object at its first data message; then the rest is delivered. */
  @ParameterizedTest
  @CsvSource({
      "A,          'A close 0, B data 1, B data 2'",
      "B,          'B close 0, A data 2'",
      "connection, 'A close 0, B close 0'",
      "publisher,  'B data 1, A data 2, B data 2, A close 1, B close 1'"})
  void allObjectsButTheEnvironmentCanBeClosedInsideOnMessage(String released, String rest) {
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
  void closeWaitsForTheDeliveringThread() throws Exception {
    final Publisher publisher = publish(SCHEME);
    listen("", recorder("A"));
    final FutureTask<Void> closing = new FutureTask<>(connection::close, null);
    onFirstData = () -> startAndAwait("park", closing);
    post(publisher, 1, 2);
    connection.process(0);
    assertThrows(IllegalStateException.class, () -> connection.process(0));
    closing.get();
    assertReceived("A open, A data 1, A data 2, A close 0");
  }

  /** Inside onMessage, the delivering thread waits for another thread that makes these calls. */
  @Test
  void callsThatDoNotDeliverDoNotWaitForTheDeliveringThread() throws Exception {
    final Publisher publisher = publish(SCHEME);
    final Listener listener = listen("", recorder("A"));
    connection.process(0);
    final Scheme scheme = listener.getScheme();
    final List<Object> results = new ArrayList<>();
    onFirstData = () -> CompletableFuture.runAsync(() -> {
      post(publisher, 2);
      connection.newPublisher("").getName();
      connection.newListener("", recorder("B")).getName();
      Collections.addAll(results, connection.getState(), listener.getState(), listener.getName(),
          connection.getName(), listener.getScheme());
      connection.wakeup();
    }).orTimeout(60, TimeUnit.SECONDS).join();
    post(publisher, 1);
    connection.process(0);
    assertEquals(List.of(State.ACTIVE, State.ACTIVE, "", "", scheme), results);
  }

  @Test
  void processReturnsAfterWakeupDeliveryShutAndClose() throws Exception {
    connection.wakeup();
    connection.process(Integer.MAX_VALUE);
    final Listener listener = connection.newListener("", recorder("A"));
    final List<Runnable> ends = List.of(connection::wakeup, () -> listener.open(""),
        connection::shut, connection::close);
    for (Runnable end : ends) {
      final FutureTask<Void> processing =
          new FutureTask<>(() -> connection.process(Integer.MAX_VALUE), null);
      startAndAwait("conn_process", processing);
      end.run();
      processing.get();
      if (end == ends.get(2)) connection.open("");
    }
    assertReceived("A open, A close 2");
  }

  /** The other thread waits for the process-wide lock that the closing thread has locked. */
  @Test
  void closeInsideOnMessageDoesNotWaitForAThreadThatMakesAListener() throws Exception {
    final Listener listener = listen("", recorder("A"));
    connection.process(0);
    final FutureTask<Listener> making =
        new FutureTask<>(() -> connection.newListener("", recorder("B")));
    onClose = closing -> {
      onClose = ignored -> {};
      startAndAwait("park", making);
      connection.close();
    };
    listener.shut();
    assertEquals(IllegalStateException.class,
        assertThrows(ExecutionException.class, making::get).getCause().getClass());
    assertUnusable(connection);
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
        assertEquals(volume, message.getData().getLong(VOLUME), "the payload is valid");
      }
      return 0;
    };
  }

  private void assertReceived(String expected) {
    assertEquals(expected, String.join(", ", received));
  }
}
