package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import java.math.BigDecimal;
import java.nio.*;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.quendel.oxli.messages.*;

class MessageTest extends GatewayTest {
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
      assertTrue(message.dump().contains("isin=" + texts.get(texts.size() - 1)), message.dump());
    }));
    assertPayload(quote.getData(), true);
    for (String text : List.of("ü", "B")) {
      quote.setText(ISIN, 12, text);
      quote.getData().position(QUOTE_SIZE);
      publisher.post(quote);
    }
    quote.getData().put(ISIN, (byte) 'C');
    assertTrue(quote.dump().contains("isin=C"), quote.dump());
    connection.process(0);
    assertEquals(List.of("ü", "B"), texts);
  }

  @Test
  void copyIsUsableAfterTheDelivery() {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final List<StreamDataMessage> delivered = new ArrayList<>();
    final List<StreamDataMessage> copies = new ArrayList<>();
    listen("mode=replica", onData(message -> {
      delivered.add((StreamDataMessage) message);
      message.getData().position(QUOTE_SIZE);
      copies.add(((StreamDataMessage) message).copy());
    }));
    final StreamDataMessage row = publisher.newMessage("quote");
    for (int i = 0; i < 2; ++i) {
      row.setText(ISIN, 12, "DE" + i);
      row.setNull(i, true);
      publisher.post(row);
    }
    copies.add(row.copy());
    row.setNull(1, false);
    row.close();
    connection.process(0);

    assertUnusable(delivered.get(0));
    assertThrows(IllegalStateException.class, () -> publisher.post(delivered.get(0)));
    copies.get(1).close();
    final List<String> contents = new ArrayList<>();
    for (StreamDataMessage copy : copies) {
      assertPayload(copy.getData(), false);
      assertEquals(0, copy.getData().position());
      contents.add(copy.getMsgName() + ' ' + copy.getMsgIndex() + ' ' + copy.getMsgId() + ' '
          + copy.getRev() + ' ' + copy.getText(ISIN, 12) + Arrays.toString(copy.getNulls()));
      assertThrows(IllegalStateException.class, copy::dump);
      assertThrows(IllegalStateException.class, () -> publisher.post(copy));
    }
    assertEquals(List.of("quote 1 7 0 DE1[true, true, false]",
        "quote 1 7 1 DE0[true, false, false]", "quote 1 7 2 DE1[true, true, false]"), contents);
  }

  /** A "?" stands for a row whose description is unknown or ambiguous. */
  @ParameterizedTest
  @CsvSource({"'quote,large,quote', quote 010 ? 0000 quote 000",
      "'large,quote,large', large 0010 ? 000 large 0000", "'narrow,wide,narrow', ? 1 ? 000 ? 0"})
  void rowsInOneObjectMayDifferInDescriptionAndNullMap(String names, String expected) {
    final Publisher publisher = publish("mode=replica;" + SCHEME);
    final StringBuilder seen = new StringBuilder();
    listen("mode=replica", onData(message -> {
      final StreamDataMessage row = (StreamDataMessage) message;
      String desc = "?";
      try {
        desc = row.getDesc().getName();
        assertSame(row.getDesc(), row.copy().getDesc());
      } catch (IllegalStateException | NoSuchElementException e) {
        assertThrows(NoSuchElementException.class, row.copy()::getDesc);
      }
      seen.append(' ').append(desc).append(' ');
      for (boolean isNull : row.getNulls()) seen.append(isNull ? '1' : '0');
      assertThrows(IllegalStateException.class, () -> row.setNulls(new boolean[9]));
      assertThrows(IllegalStateException.class, () -> row.setNull(0, true));
    }));
    boolean isFirst = true;
    for (String name : names.split(",")) {
      final StreamDataMessage row = publisher.newMessage(name);
      row.setNull(row.getNulls().length / 2, isFirst);
      isFirst = false;
      publisher.post(row);
    }
    connection.process(0);
    assertEquals(expected, seen.substring(1));
  }

  @Test
  void nestedDeliveryMakesTheOuterMessageUnusable() {
    final Publisher publisher = publish(SCHEME);
    final List<Long> volumes = new ArrayList<>();
    listen("", onData(message -> {
      volumes.add(message.getData().getLong(VOLUME));
      if (volumes.size() == 1) {
        connection.process(0);
        assertUnusable(message);
      }
    }));
    post(publisher, 1, 2);
    connection.process(0);
    assertEquals(List.of(1L, 2L), volumes);
  }

  @Test
  void messagesOfOtherTypeCodesAreDelivered() {
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
    final Message odd = publisher.newMessage("odd");
    odd.getData().putInt(0, 9);
    publisher.post(odd);
    connection.process(0);
    assertEquals(List.of(768, 9), received);
    final List<Message> all =
        List.of(odd, publisher.newMessageById(9), publisher.newMessageByIndex(0));
    assertEquals("[Message odd, Message odd, Message odd]", all.toString());
  }

  @Test
  void timeMessagesContainTheTime() {
    final List<Long> times = new ArrayList<>();
    listen("time=1", (conn, lsn, message) -> {
      if (message instanceof TimeMessage) times.add(((TimeMessage) message).getTime());
      return 0;
    });
    while (times.isEmpty()) connection.process(1000);
    assertEquals(System.currentTimeMillis() / 1e3, times.get(0) / 1e6, 60, "seconds");
  }

  @Test
  void onlyDeliveredMessagesCanBePostedByOtherPublishers() {
    final Publisher publisher = publish(SCHEME);
    final Publisher forwarder = publish("stream=copy;" + SCHEME);
    final Message own = publisher.newMessage("quote");
    assertThrows(IllegalArgumentException.class, () -> forwarder.post(own));
    final List<String> received = new ArrayList<>();
    listen("", onData(message -> {
      final DataMessage data = (DataMessage) message;
      assertNull(data.getRefMessage());
      data.setRefMessage(data);
      data.setUserId(8);
      data.setAddress("next");
      forwarder.post(data);
      forwarder.post(data);
    }));
    listen("stream=copy", onData(message -> {
      final DataMessage data = (DataMessage) message;
      received.add(data.getUserId() + data.getAddress() + data.getData().getLong(VOLUME));
    }));
    post(publisher, 42, 43);
    connection.process(0);
    connection.process(0);
    assertEquals(List.of("8next42", "8next42", "8next43", "8next43"), received);
  }

  /** The object of a delivered message contains the next message after onMessage has returned. */
  @Test
  void postRefusesReferencesToUnusableMessages() {
    final Publisher publisher = publish(SCHEME);
    final DataMessage reply = publisher.newMessage("quote");
    listen("", onData(message -> {
      if (reply.getRefMessage() == null) {
        reply.setRefMessage((DataMessage) message);
      } else {
        assertSame(message, reply.getRefMessage());
        assertThrows(IllegalStateException.class, () -> publisher.post(reply));
      }
    }));
    post(publisher, 1, 2);
    connection.process(0);
    assertThrows(IllegalStateException.class, () -> publisher.post(reply));
    reply.setRefMessage(reply.copy());
    assertThrows(IllegalStateException.class, () -> publisher.post(reply));
    reply.setRefMessage(null);
    publisher.post(reply);
  }

  @Test
  void decimalsAreDecoded() {
    final BigDecimal value = new BigDecimal("-12.340");
    final DataMessage quote = publish(SCHEME).newMessage("quote");
    quote.getData().putLong(PRICE, -12340).put(PRICE + 8, (byte) 3);
    for (Message message : List.of(quote, quote.copy())) {
      assertEquals(value, message.getDecimal(PRICE));
      assertEquals(BigDecimal.valueOf(3), message.getDecimal(QUOTE_SIZE - 1), "zeros follow");
      message.getData().put(PRICE + 8, (byte) 99);
      assertRefused(ResultCode.INTERNAL, "Message.getDecimal", () -> message.getDecimal(PRICE));
      assertThrows(IndexOutOfBoundsException.class, () -> message.getDecimal(-1));
      assertThrows(IndexOutOfBoundsException.class, () -> message.getDecimal(QUOTE_SIZE));
    }
  }

  @Test
  void stringsAreWrittenOnlyIfTheyFit() {
    final DataMessage quote = publish(SCHEME).newMessage("quote");
    quote.getData().putLong(VOLUME, -1);
    for (String text : List.of("ABCDEFGHIJKL", "éé", "")) {
      quote.setText(ISIN, 12, text);
      assertThrows(IllegalArgumentException.class, () -> quote.setText(ISIN, 3, "éé"));
      assertEquals(text, quote.getText(ISIN, 12));
    }
    assertEquals(0, quote.getData().getLong(ISIN), "padded with zeros");
    assertEquals(-1, quote.getData().getLong(VOLUME));
    for (String text : List.of("a\0", "\ud800", "\udc00b", "\ud83dx")) {
      assertThrows(IllegalArgumentException.class, () -> quote.setText(ISIN, 12, text));
    }
    final FieldDesc isin = quote.getDesc().getField("isin");
    final Exception tooLong =
        assertThrows(IllegalArgumentException.class, () -> isin.setText(quote, "ABCDEFGHIJKLM"));
    assertEquals("13 bytes do not fit into field isin (c12)", tooLong.getMessage());
    quote.setText(ISIN, 12, "\ud83d\ude00");
    assertEquals("\ud83d\ude00", quote.getText(ISIN, 12));
    quote.setText(QUOTE_SIZE - 1, 1, "Z");
    assertEquals("Z", quote.getText(QUOTE_SIZE - 1, 1));
  }

  @ParameterizedTest
  @CsvSource({"1, -1", "-1, 1", "29, 1", "0, 30", "0, 2147483647"})
  void offsetsAndLengthsAreChecked(int offset, int length) {
    final DataMessage quote = publish(SCHEME).newMessage("quote");
    assertThrows(IndexOutOfBoundsException.class, () -> quote.setText(offset, length, ""));
    assertThrows(IndexOutOfBoundsException.class, () -> quote.getText(offset, length));
  }

  private static void assertPayload(ByteBuffer payload, boolean direct) {
    assertEquals(direct, payload.isDirect());
    assertEquals(ByteOrder.LITTLE_ENDIAN, payload.order());
    assertEquals(QUOTE_SIZE, payload.capacity());
  }
}
