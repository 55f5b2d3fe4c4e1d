package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.quendel.oxli.messages.*;

class ErrorTest extends GatewayTest {
  @Test
  void whatASubscriberThrowsComesOutAndTheRestIsDeliveredLater() {
    final Publisher publisher = publish(SCHEME);
    final List<Integer> received = new ArrayList<>();
    final Deque<Throwable> thrown =
        new ArrayDeque<>(List.of(new ArithmeticException("first"), new LinkageError("second")));
    final List<Throwable> expected = new ArrayList<>(thrown);
    listen("", onData(message -> {
      received.add(((DataMessage) message).getUserId());
      if (thrown.isEmpty()) return;
      if (thrown.peek() instanceof Error) throw (Error) thrown.pop();
      throw (RuntimeException) thrown.pop();
    }));
    final DataMessage message = publisher.newMessage("quote");
    for (int user = 1; user <= 4; ++user) {
      message.setUserId(user);
      publisher.post(message);
    }
    for (Throwable next : expected) {
      assertSame(next, assertThrows(Throwable.class, () -> connection.process(0)));
    }
    assertEquals(List.of(1, 2), received);
    connection.process(0);
    assertEquals(List.of(1, 2, 3, 4), received);
  }

  /** Codes of every kind, all by way of a subscriber. */
  @ParameterizedTest
  @CsvSource({
      "131072, OX_ERR_INTERNAL,        the gateway itself failed",
      "131073, OX_ERR_INVALIDARGUMENT, an argument is not usable",
      "131077, OX_ERR_INVALIDSTATE,    it does not fit the object's state",
      "131079, OX_ERR_BUFFERTOOSMALL,  the buffer does not hold the result",
      "77,     OX_ERR_0x4d,            unknown result code",
      "-1,     OX_ERR_0xffffffff,      unknown result code"})
  void subscribersResultBecomesAnException(int code, String name, String text) {
    final List<Integer> results = new ArrayList<>(List.of(code, 0));
    final ISubscriber subscriber =
        (conn, lsn, message) -> message instanceof OpenMessage ? results.remove(0) : 0;
    listen("", subscriber);
    listen("", subscriber);
    final OxliException refused = assertRefused(code, "Connection.process",
        () -> connection.process(0));
    assertEquals(name, refused.getName());
    assertTrue(refused.getMessage().contains(": " + text + " ("), refused.getMessage());
    assertEquals(List.of(0), results);
    connection.process(0);
    assertEquals(List.of(), results);
  }

  @Test
  void releaseGoesOnAfterAFailure() {
    final List<RuntimeException> thrown = new ArrayList<>();
    final ISubscriber subscriber = (conn, lsn, message) -> {
      if (!(message instanceof CloseMessage)) return 0;
      thrown.add(new RuntimeException("closing " + thrown.size()));
      throw thrown.get(thrown.size() - 1);
    };
    final List<Listener> listeners = List.of(listen("", subscriber), listen("", subscriber));
    final Publisher publisher = publish(SCHEME);
    final RuntimeException first =
        assertThrows(RuntimeException.class, () -> environment.close());
    assertEquals(2, thrown.size());
    assertSame(thrown.get(0), first);
    assertEquals(List.of(thrown.get(1)), List.of(first.getSuppressed()));
    for (Listener listener : listeners) {
      assertThrows(IllegalStateException.class, listener::getState);
    }
    assertThrows(IllegalStateException.class, publisher::getState);
    Environment.open("").close();
  }
}
