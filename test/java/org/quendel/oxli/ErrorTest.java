package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.io.IOException;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;
import org.quendel.oxli.messages.*;

class ErrorTest extends GatewayTest {
  @Test
  void processThrowsTheExceptionOfASubscriberAndTheNextOneDeliversTheRest() {
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

  @ParameterizedTest
  @ValueSource(ints = {ResultCode.INTERNAL, -1})
  void processThrowsForTheResultOfASubscriber(int code) {
    final List<Integer> results = new ArrayList<>(List.of(code, 0));
    final ISubscriber subscriber =
        (conn, lsn, message) -> message instanceof OpenMessage ? results.remove(0) : 0;
    listen("stream=a", subscriber);
    listen("stream=b", subscriber);
    final OxliException refused = assertThrows(OxliException.class, () -> connection.process(0));
    assertEquals("Connection.process (connection): the subscriber of listener stream=a returned "
        + code + " (0x" + Integer.toHexString(code) + ')', refused.getMessage());
    assertEquals(code, refused.getCode());
    assertEquals(List.of(0), results);
    connection.process(0);
    assertEquals(List.of(), results);
  }

  @Test
  void closeContinuesAfterAnException() {
    final List<Exception> thrown = new ArrayList<>();
    final ISubscriber subscriber = (conn, lsn, message) -> {
      if (!(message instanceof CloseMessage)) return 0;
      thrown.add(new IOException());
      throw ErrorTest.<RuntimeException>unchecked(thrown.get(thrown.size() - 1));
    };
    final List<AutoCloseable> all =
        List.of(listen("", subscriber), listen("", subscriber), publish(SCHEME), connection);
    final Exception first = assertThrows(IOException.class, () -> environment.close());
    assertSame(thrown.get(0), first);
    assertEquals(thrown.subList(1, 2), List.of(first.getSuppressed()));
    for (AutoCloseable each : all) assertUnusable(each);
    Environment.open("").close();
  }

  /** Throws an exception that its callers do not declare. */
  @SuppressWarnings("unchecked")
  private static <T extends Throwable> T unchecked(Throwable e) throws T {
    throw (T) e;
  }
}
