package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.quendel.oxli.messages.*;

class ErrorTest extends GatewayTest {
  @Test
  void whatASubscriberThrowsComesOutAndTheRestIsDeliveredLater() {
    final List<Long> received = new ArrayList<>();
    listen("", onData(message -> {
      received.add(message.getData().getLong(VOLUME));
      if (received.size() == 1) throw new ArithmeticException();
      if (received.size() == 2) throw new LinkageError();
    }));
    post(publish(SCHEME), 1, 2, 3, 4);
    assertThrows(ArithmeticException.class, () -> connection.process(0));
    assertThrows(LinkageError.class, () -> connection.process(0));
    assertEquals(List.of(1L, 2L), received);
    connection.process(0);
    assertEquals(List.of(1L, 2L, 3L, 4L), received);
  }

  /** Codes of every kind, all by way of a subscriber. */
  @ParameterizedTest
  @CsvSource({
      "131072, OX_ERR_INTERNAL,       the gateway itself failed",
      "131077, OX_ERR_INVALIDSTATE,   the object's state does not allow the call; the log says why",
      "131079, OX_ERR_BUFFERTOOSMALL, the buffer does not hold the result",
      "-1,     OX_ERR_0xffffffff,     unknown result code"})
  void subscribersResultBecomesAnException(int code, String name, String text) {
    final List<Integer> results = new ArrayList<>(List.of(code, 0));
    final ISubscriber subscriber =
        (conn, lsn, message) -> message instanceof OpenMessage ? results.remove(0) : 0;
    listen("", subscriber);
    listen("", subscriber);
    final OxliException refused =
        assertRefused(code, "Connection.process", () -> connection.process(0));
    assertEquals(String.format("Connection.process: %s: %s (0x%x)", name, text, code),
        refused.getMessage());
    assertEquals(List.of(0), results);
    connection.process(0);
    assertEquals(List.of(), results);
  }

  @Test
  void releaseGoesOnAfterAFailure() {
    final List<RuntimeException> thrown = new ArrayList<>();
    final ISubscriber subscriber = (conn, lsn, message) -> {
      if (!(message instanceof CloseMessage)) return 0;
      thrown.add(new RuntimeException());
      throw thrown.get(thrown.size() - 1);
    };
    final List<AutoCloseable> all =
        List.of(listen("", subscriber), listen("", subscriber), publish(SCHEME), connection);
    final RuntimeException first =
        assertThrows(RuntimeException.class, () -> environment.close());
    assertSame(thrown.get(0), first);
    assertEquals(thrown.subList(1, 2), List.of(first.getSuppressed()));
    for (AutoCloseable each : all) assertUnusable(each);
    Environment.open("").close();
  }
}
