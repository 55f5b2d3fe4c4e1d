package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.util.*;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.*;

/** Messages in ways that the native tests do not make them. */
class MessageTypesTest extends GatewayTest {
  @Test
  void messageOfOwnTypeCode() {
    final Publisher publisher = publish("stream=s;" + SCHEME);
    final List<Integer> received = new ArrayList<>();
    listen("stream=s", (conn, lsn, message) -> {
      if (message.getClass() == Message.class) {
        Collections.addAll(received, message.getType(), message.getData().getInt(0));
      } else if (message instanceof OpenMessage) {
        assertThrows(IllegalStateException.class, () -> message.getText(0, 0), "no payload");
      }
      return 0;
    });
    final Message odd = publisher.newMessageByIndex(0);
    odd.getData().putInt(0, 9);
    publisher.post(odd);
    connection.process(0);
    assertEquals(List.of(768, 9), received);
    assertEquals("Message odd", odd.toString());
  }

  @Test
  void messageByItsId() {
    final DataMessage quote = publish(SCHEME).newMessageById(7);
    assertEquals("quote", quote.getMsgName());
  }

  @Test
  void clock() {
    final List<Long> times = new ArrayList<>();
    listen("time=1", (conn, lsn, message) -> {
      if (message instanceof TimeMessage) times.add(((TimeMessage) message).getTime());
      return 0;
    });
    while (times.isEmpty()) connection.process(1000);
    assertEquals(System.currentTimeMillis() / 1e3, times.get(0) / 1e6, 60, "seconds");
  }
}
