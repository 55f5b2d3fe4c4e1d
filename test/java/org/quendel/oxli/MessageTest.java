package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.function.Function;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.*;

class MessageTest extends GatewayTest {
  private static final int REPLY_WANTED = 1;

  @Test
  void payloadIsNotCopied() {
    final Publisher publisher = publish(SCHEME);
    final DataMessage quote = publisher.newMessage("quote");
    final List<String> texts = new ArrayList<>();
    listen("", onData(message -> {
      assertPayload(message.getData(), true);
      assertSame(message.getData(), message.getData());
      message.getData().position(5).limit(6);
      texts.add(message.getText(ISIN, 12));
    }));
    assertPayload(quote.getData(), true);
    quote.getData().put(ISIN, (byte) 'A').position(QUOTE_SIZE);
    publisher.post(quote);
    quote.getData().put(ISIN, (byte) 'B');
    publisher.post(quote);
    quote.getData().put(ISIN, (byte) 'C');
    connection.process(0);
    assertEquals(List.of("A", "B"), texts);
  }

  @Test
  void copySurvivesTheDelivery() {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final List<StreamDataMessage> lent = new ArrayList<>();
    final List<StreamDataMessage> copies = new ArrayList<>();
    listen("mode=replica", onData(message -> {
      lent.add((StreamDataMessage) message);
      message.getData().position(QUOTE_SIZE);
      copies.add(((StreamDataMessage) message).copy());
    }));
    final StreamDataMessage row = publisher.newMessage("quote");
    for (int i = 0; i < 2; ++i) {
      row.setText(ISIN, 12, "DE" + i);
      row.setUserId(10 + i);
      row.setNull(i, true);
      publisher.post(row);
    }
    final StreamDataMessage unsent = row.copy();
    row.setNull(1, false);
    row.close();
    connection.process(0);

    assertSame(lent.get(0), lent.get(1));
    assertEnded(lent.get(0));
    assertThrows(IllegalStateException.class, () -> publisher.post(lent.get(0)));
    copies.get(0).close();
    copies.add(CompletableFuture.supplyAsync(copies.get(0)::copy).join());
    copies.add(unsent);
    assertNotSame(copies.get(0).getData(), copies.get(2).getData());
    final List<String> contents = new ArrayList<>();
    for (StreamDataMessage copy : copies) {
      assertPayload(copy.getData(), false);
      assertEquals(0, copy.getData().position());
      contents.add(copy.getMsgName() + ' ' + copy.getText(ISIN, 12) + ' ' + copy.getUserId() + ' '
          + copy.getRev() + ' ' + Arrays.toString(copy.getNulls()));
      assertThrows(IllegalStateException.class, copy::dump);
      assertThrows(IllegalStateException.class, () -> publisher.post(copy));
    }
    final String first = "quote DE0 10 1 [true, false, false]";
    assertEquals(List.of(first, "quote DE1 11 2 [true, true, false]", first,
        "quote DE1 11 0 [true, true, false]"), contents);
  }

  @Test
  void dataFieldsAreExchangedAtPost() {
    final Publisher publisher = publish(SCHEME);
    final List<String> received = new ArrayList<>();
    listen("", onData(message -> {
      final DataMessage data = (DataMessage) message;
      assertNull(data.getRefMessage());
      data.setRefMessage(data);
      received.add(data.getUserId() + " '" + data.getAddress() + '\'');
    }));
    final DataMessage quote = publisher.newMessage("quote");
    publisher.post(quote);
    quote.setUserId(-1);
    quote.setAddress("über");
    publisher.post(quote);
    quote.setAddress(null);
    publisher.post(quote);
    connection.process(0);
    assertEquals(List.of("0 ''", "-1 'über'", "-1 ''"), received);
  }

  /** A reply is known by the message that it refers to: requests without one time out. */
  @Test
  void replyRefersToADeliveredMessage() {
    final Publisher publisher = publish(SCHEME);
    final DataMessage request = publisher.newMessage("quote");
    final DataMessage reply = publisher.newMessage("quote");
    final DataMessage closed = publisher.newMessage("quote");
    closed.close();
    final List<Integer> timeouts = new ArrayList<>();
    listen("", (conn, lsn, message) -> {
      if (message.getType() == MessageType.ZRMQ_TIMEOUT) {
        timeouts.add(((ZrMqTimeOutMessage) message).getUserId());
      } else if (message instanceof DataMessage && ((DataMessage) message).getUserId() > 0) {
        final DataMessage data = (DataMessage) message;
        final DataMessage[] answers = {data, closed, data.copy()};
        reply.setRefMessage(answers[data.getUserId() - 1]);
        publisher.post(reply);
      }
      return 0;
    });
    for (int user = 1; user <= 3; ++user) {
      request.setUserId(user);
      publisher.post(request, REPLY_WANTED);
    }
    while (timeouts.size() < 2) connection.process(1000);
    assertEquals(List.of(2, 3), timeouts);
  }

  @Test
  void nullMapIsExchangedAtPost() {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final List<String> received = new ArrayList<>();
    listen("mode=replica", onData(message ->
        received.add(Arrays.toString(((StreamDataMessage) message).getNulls()))));
    final StreamDataMessage row = publisher.newMessage("quote");
    final boolean[] nulls = {false, true, true};
    row.setNulls(nulls);
    publisher.post(row);
    nulls[1] = false;
    publisher.post(row);
    row.setNulls(new boolean[2]);
    assertRefused(ResultCode.INVALID_ARGUMENT, "Publisher.post", () -> publisher.post(row));
    row.setNulls(null);
    assertFalse(row.isNull(1));
    assertThrows(IllegalStateException.class, () -> row.setNull(1, true));
    publisher.post(row);
    connection.process(0);
    assertEquals(List.of("[false, true, true]", "[false, false, true]", "[false, false, false]"),
        received);
  }

  /** The row without fields has none, and may share its object with one that has. */
  @Test
  void rowWithoutNullMapHasNoNulls() {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final List<Boolean> nulls = new ArrayList<>();
    listen("mode=replica",
        onData(message -> nulls.add(((StreamDataMessage) message).isNull(1))));
    final StreamDataMessage row = publisher.newMessage("quote");
    row.setNull(1, true);
    publisher.post(row);
    publisher.post(publisher.newMessage("empty"));
    publisher.post(row);
    connection.process(0);
    assertEquals(List.of(true, false, true), nulls);
  }

  /** Messages without index and id share an object, whatever their fields. */
  @Test
  void messagesWithoutKeyHaveTheirOwnFields() {
    assertEquals(List.of("4 [false]", "12 [false, false, false]", "4 [false]"),
        rows(row -> row.getData().capacity() + " " + Arrays.toString(row.getNulls()),
            "narrow", "wide", "narrow"));
  }

  @Test
  void messagesWithoutKeyHaveTheirOwnNames() {
    assertEquals(List.of("narrow", "wide"), rows(StreamDataMessage::getMsgName, "narrow", "wide"));
  }

  /** The one's index is the other's id. */
  @Test
  void messageWithAnIdOnlyIsNotTakenForOneWithAnIndex() {
    assertEquals(List.of("quote", "rare"), rows(StreamDataMessage::getMsgName, "quote", "rare"));
  }

  private List<String> rows(Function<StreamDataMessage, String> toText, String... names) {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final List<String> received = new ArrayList<>();
    listen("mode=replica",
        onData(message -> received.add(toText.apply((StreamDataMessage) message))));
    for (String name : names) publisher.post(publisher.newMessage(name));
    connection.process(0);
    return received;
  }

  @Test
  void deliveredMessageCanBeForwarded() {
    final Publisher publisher = publish(SCHEME);
    final Publisher forwarder = publish("stream=copy;" + SCHEME);
    final List<String> received = new ArrayList<>();
    listen("", onData(message -> {
      ((DataMessage) message).setUserId(8);
      ((DataMessage) message).setAddress("next");
      forwarder.post(message);
      forwarder.post(message);
    }));
    listen("stream=copy", onData(message -> {
      final DataMessage data = (DataMessage) message;
      received.add(data.getUserId() + data.getAddress() + data.getData().getLong(VOLUME));
    }));
    final DataMessage quote = publisher.newMessage("quote");
    quote.getData().putLong(VOLUME, 42);
    publisher.post(quote);
    connection.process(0);
    connection.process(0);
    assertEquals(List.of("8next42", "8next42"), received);
  }

  @Test
  void onlyLivingMessagesOfItsOwnArePosted() {
    final Publisher publisher = publish(SCHEME);
    final Publisher other = publish(SCHEME);
    final DataMessage quote = publisher.newMessage("quote");
    assertThrows(IllegalArgumentException.class, () -> other.post(quote));
    quote.close();
    quote.close();
    assertEnded(quote);
    assertThrows(IllegalStateException.class, () -> publisher.post(quote));
    assertThrows(IllegalArgumentException.class, () -> other.post(quote));
    final DataMessage left = other.newMessage("quote");
    other.close();
    assertEnded(left);
    left.close();
  }

  @Test
  void dumpShowsFieldsByName() {
    final Publisher publisher = publish(SCHEME);
    final List<String> dumps = new ArrayList<>();
    listen("", (conn, lsn, message) -> {
      dumps.add(message.dump());
      return 0;
    });
    final DataMessage quote = publisher.newMessage("quote");
    quote.setText(ISIN, 12, "über");
    quote.getData().putLong(VOLUME, 42);
    quote.setUserId(3);
    dumps.add(quote.dump());
    publisher.post(quote);
    connection.process(0);
    assertTrue(dumps.get(1).contains("type=" + MessageType.OPEN), dumps.get(1));
    for (int i : new int[] {0, 2}) {
      final List<String> lines = dumps.get(i).lines().collect(Collectors.toList());
      assertTrue(lines.containsAll(List.of("user_id=3", "isin=über", "volume=42", "price=0")),
          dumps.get(i));
    }
  }

  @Test
  void decimals() {
    final Publisher publisher = publish(SCHEME);
    final List<BigDecimal> values = List.of(new BigDecimal("12.340"), new BigDecimal("-0.01"),
        BigDecimal.ZERO, new BigDecimal("1E+18"), BigDecimal.valueOf(Long.MAX_VALUE, 18),
        BigDecimal.valueOf(Long.MIN_VALUE, 2));
    final List<BigDecimal> delivered = new ArrayList<>();
    final List<BigDecimal> copied = new ArrayList<>();
    listen("", onData(message -> {
      delivered.add(message.getDecimal(PRICE));
      copied.add(message.copy().getDecimal(PRICE));
    }));
    final DataMessage quote = publisher.newMessage("quote");
    for (BigDecimal value : values) {
      quote.getData().putLong(PRICE, value.unscaledValue().longValueExact())
          .put(PRICE + 8, (byte) value.scale());
      assertEquals(value, quote.getDecimal(PRICE));
      publisher.post(quote);
    }
    connection.process(0);
    assertEquals(values, delivered);
    assertEquals(values, copied);
    quote.getData().put(PRICE + 8, (byte) 99);
    for (Message message : List.of(quote, quote.copy())) {
      assertRefused(ResultCode.INTERNAL, "Message.getDecimal", () -> message.getDecimal(PRICE));
      assertThrows(IndexOutOfBoundsException.class, () -> message.getDecimal(-1));
      assertThrows(IndexOutOfBoundsException.class, () -> message.getDecimal(QUOTE_SIZE));
    }
  }

  @Test
  void textsStayInTheirField() {
    final DataMessage quote = publish(SCHEME).newMessage("quote");
    for (Message message : List.of(quote, quote.copy())) {
      message.getData().putLong(VOLUME, -1);
      for (String text : List.of("ABCDEFGHIJKL", "éé", "")) {
        message.setText(ISIN, 12, text);
        assertEquals(text, message.getText(ISIN, 12));
        assertThrows(IllegalArgumentException.class, () -> message.setText(ISIN, 3, "éé"));
        assertEquals(text, message.getText(ISIN, 12));
      }
      assertEquals(0, message.getData().getLong(ISIN), "filled up with zeros");
      assertEquals(-1, message.getData().getLong(VOLUME));
      message.setText(QUOTE_SIZE - 1, 1, "Z");
      assertEquals("Z", message.getText(QUOTE_SIZE - 1, 1));
      for (int[] outside : new int[][] {{QUOTE_SIZE, 1}, {-1, 1}, {0, QUOTE_SIZE + 1}}) {
        assertThrows(IndexOutOfBoundsException.class,
            () -> message.setText(outside[0], outside[1], ""));
        assertThrows(IndexOutOfBoundsException.class,
            () -> message.getText(outside[0], outside[1]));
      }
    }
  }

  @Test
  void lengthsAreNotNegative() {
    final DataMessage quote = publish(SCHEME).newMessage("quote");
    assertThrows(IndexOutOfBoundsException.class, () -> quote.setText(1, -1, ""));
    assertThrows(IndexOutOfBoundsException.class, () -> quote.getText(1, -1));
  }

  @Test
  void messageWithoutPayloadHasNoFields() {
    final List<Message> copies = new ArrayList<>();
    listen("", (conn, lsn, message) -> {
      if (message.getType() != MessageType.OPEN) return 0;
      assertNull(message.getData());
      assertThrows(IllegalStateException.class, () -> message.getText(0, 1));
      assertThrows(IllegalStateException.class, () -> message.setText(0, 1, ""));
      assertThrows(IllegalStateException.class, () -> message.getDecimal(0));
      copies.add(message.copy());
      return 0;
    });
    connection.process(0);
    assertNull(copies.get(0).getData());
    assertEquals(MessageType.OPEN, copies.get(0).getType());
  }

  private static void assertPayload(ByteBuffer payload, boolean direct) {
    assertEquals(direct, payload.isDirect());
    assertEquals(ByteOrder.LITTLE_ENDIAN, payload.order());
    assertEquals(QUOTE_SIZE, payload.capacity());
  }
}
