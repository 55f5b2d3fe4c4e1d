package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.quendel.oxli.messages.CloseMessage;
import org.quendel.oxli.messages.DataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.MessageType;
import org.quendel.oxli.messages.ParseErrorMessage;
import org.quendel.oxli.messages.StreamDataMessage;
import org.quendel.oxli.messages.TimeMessage;
import org.quendel.oxli.messages.ZrMqTimeOutMessage;
import org.quendel.oxli.messages.ZrReplClearDeletedMessage;
import org.quendel.oxli.messages.ZrReplLifeNumMessage;
import org.quendel.oxli.messages.ZrReplStateMessage;

class MessageTypesTest extends GatewayTest {
  private static final int REPLY_WANTED = 1;
  private static final int CLEAR_DELETED = 2;

  private final List<String> received = new ArrayList<>();
  private String state;

  @Test
  void plainStream() {
    final Publisher first = publish("stream=s;" + SCHEME + "reply_timeout=1");
    final Publisher second = publish("stream=s;scheme=?{messages=alien;"
        + "message.alien=?{id=4;fields=n:i4}}");
    final Listener listener = listen("stream=s", this::receive);

    final DataMessage quote = first.newMessage("quote");
    quote.setUserId(-5);
    quote.setAddress("hier über");
    quote.getData().putLong(VOLUME, 42);
    first.post(quote);
    second.post(second.newMessage("alien"));
    final Message odd = first.newMessage("odd");
    odd.getData().putInt(0, 9);
    first.post(odd);
    connection.process(0);
    assertReceived("OpenMessage 100", "DataMessage 110 quote 1 7 -5 'hier über' 42",
        "ParseErrorMessage 190 alien 0 4 0 '' " + ResultCode.INVALID_ARGUMENT,
        "Message 300 9");

    quote.setUserId(6);
    first.post(quote, REPLY_WANTED);
    while (received.size() < 2) connection.process(1000);
    assertReceived("DataMessage 110 quote 1 7 6 'hier über' 42", "ZrMqTimeOutMessage 1001 6");

    first.shut();
    second.shut();
    connection.process(0);
    assertReceived("CloseMessage 101 1");
    listener.open("");
    connection.process(0);
    listener.shut();
    assertReceived("OpenMessage 100", "CloseMessage 101 0");
    listener.open("");
    connection.process(0);
    connection.shut();
    assertReceived("OpenMessage 100", "CloseMessage 101 2");
  }

  @Test
  void replicatedStream() {
    final Publisher publisher = publish("stream=s;mode=replica;" + SCHEME);
    final Listener listener = listen("stream=s;mode=replica", this::receive);
    connection.process(0);
    assertReceived("OpenMessage 100", "ZrReplLifeNumMessage 1110 1 0", "TnBeginMessage 200",
        "TnCommitMessage 210", "ZrReplOnlineMessage 1112");

    final StreamDataMessage row = publisher.newMessageById(7);
    row.setUserId(-1L << 40);
    row.setNull(2, true);
    row.getData().putLong(VOLUME, -1);
    publisher.post(row);
    row.setRev(Integer.MAX_VALUE + 2L);
    publisher.post(row, CLEAR_DELETED);
    connection.process(0);
    assertReceived("TnBeginMessage 200",
        "StreamDataMessage 120 quote 1 7 " + (-1L << 40) + " rev 1 [false, false, true] -1",
        "TnCommitMessage 210", "TnBeginMessage 200",
        "ZrReplClearDeletedMessage 1111 1 " + (Integer.MAX_VALUE + 2L), "TnCommitMessage 210");

    listener.shut();
    assertReceived("ZrReplStateMessage 1115 lifenum=1;rev=1", "CloseMessage 101 0");
    listener.open("replstate=\"" + state + '"');
    connection.process(0);
    assertReceived("OpenMessage 100", "ZrReplLifeNumMessage 1110 1 0", "TnBeginMessage 200",
        "ZrReplClearDeletedMessage 1111 1 " + (Integer.MAX_VALUE + 2L), "TnCommitMessage 210",
        "ZrReplOnlineMessage 1112");
  }

  @Test
  void clock() {
    final List<Long> times = new ArrayList<>();
    listen("time=1", (conn, lsn, message) -> {
      if (message.getType() == MessageType.TIME) times.add(((TimeMessage) message).getTime());
      return 0;
    });
    final long before = System.currentTimeMillis() * 1000;
    while (times.isEmpty()) connection.process(1000);
    assertTrue(times.get(0) >= before, times::toString);
    assertTrue(times.get(0) <= System.currentTimeMillis() * 1000 + 999, times::toString);
  }

  private int receive(Connection conn, Listener lsn, Message message) {
    received.add(message.getClass().getSimpleName() + ' ' + Integer.toHexString(message.getType())
        + valuesOf(message));
    return 0;
  }

  private String valuesOf(Message message) {
    switch (message.getType()) {
      case MessageType.CLOSE:
        return " " + ((CloseMessage) message).getReason();
      case MessageType.DATA:
        return valuesOf((DataMessage) message) + ' ' + message.getData().getLong(VOLUME);
      case MessageType.PARSE_ERROR:
        return valuesOf((DataMessage) message) + ' ' + ((ParseErrorMessage) message).getError();
      case MessageType.STREAM_DATA: {
        final StreamDataMessage row = (StreamDataMessage) message;
        return " " + row.getMsgName() + ' ' + row.getMsgIndex() + ' ' + row.getMsgId() + ' '
            + row.getUserId() + " rev " + row.getRev() + ' ' + Arrays.toString(row.getNulls())
            + ' ' + row.getData().getLong(VOLUME);
      }
      case MessageType.ZRMQ_TIMEOUT:
        return " " + ((ZrMqTimeOutMessage) message).getUserId();
      case MessageType.ZRREPL_LIFENUM: {
        final ZrReplLifeNumMessage life = (ZrReplLifeNumMessage) message;
        return " " + life.getLifenum() + ' ' + life.getFlags();
      }
      case MessageType.ZRREPL_CLEAR_DELETED: {
        final ZrReplClearDeletedMessage cleared = (ZrReplClearDeletedMessage) message;
        return " " + cleared.getTableIdx() + ' ' + cleared.getTableRev();
      }
      case MessageType.ZRREPL_STATE:
        state = ((ZrReplStateMessage) message).getReplState();
        return " " + state;
      default:
        return message.getData() == null ? "" : " " + message.getData().getInt(0);
    }
  }

  private static String valuesOf(DataMessage message) {
    return " " + message.getMsgName() + ' ' + message.getMsgIndex() + ' ' + message.getMsgId() + ' '
        + message.getUserId() + " '" + message.getAddress() + '\'';
  }

  private void assertReceived(String... expected) {
    assertEquals(String.join("\n", expected), String.join("\n", received));
    received.clear();
  }
}
