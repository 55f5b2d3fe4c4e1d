import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.file.Paths;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import org.quendel.oxli.Connection;
import org.quendel.oxli.Environment;
import org.quendel.oxli.Listener;
import org.quendel.oxli.Publisher;
import org.quendel.oxli.messages.AbstractDataMessage;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;

/** Publishes a file of quotes on a stream, receives every one of them, and shows the last ones. */
public final class QuotesDemo {
  // The layout is the application's own: it declares the fields and reads them where it put them.
  private static final String SCHEME = "scheme=?{messages=quote;message.quote=?{id=1;indices=pk;"
      + "fields=instrument:c12,bid:d,ask:d,volume:i8;index.pk=?{fields=instrument}}}";
  private static final int INSTRUMENT = 0;
  private static final int BID = 12;
  private static final int ASK = 21;
  private static final int VOLUME = 30;
  private static final int VOLUME_FIELD = 3;
  private static final long NO_VOLUME = -1; // where a stream has no null map

  private final List<Quote> quotes;
  private final Map<String, Quote> last = new TreeMap<>();
  private int received;

  private QuotesDemo(List<Quote> quotes) {
    this.quotes = quotes;
  }

  private void run(int rate, boolean replica) throws InterruptedException {
    final String stream = "stream=quotes" + (replica ? ";mode=replica" : "");
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      connection.open("");
      final Listener listener = connection.newListener(stream, this::onMessage);
      listener.open("");
      final Publisher publisher = connection.newPublisher(stream + ';' + SCHEME);
      publisher.open("");

      final long start = System.nanoTime();
      try (AbstractDataMessage message = publisher.newMessage("quote")) {
        for (int i = 0; i < quotes.size(); ++i) {
          fill(message, quotes.get(i));
          publisher.post(message);
          if (rate > 0) {
            connection.process(0);
            Thread.sleep(Math.max(0, (i + 1) * 1000L / rate - (System.nanoTime() - start) / 1000000));
          } else if (i % 100 == 0) {
            connection.process(0);
          }
        }
      }
      for (int tries = 0; received < quotes.size() && tries < 10; ++tries) connection.process(1000);
      print((System.nanoTime() - start) / 1e9);
    }
  }

  private int onMessage(Connection connection, Listener listener, Message message) {
    if (message instanceof AbstractDataMessage) {
      final Quote quote = read(message);
      if (!quote.sameAs(quotes.get(received))) {
        throw new IllegalStateException("row " + received + " came back as " + quote);
      }
      last.put(quote.instrument, quote);
      ++received;
    }
    return 0;
  }

  private static void fill(Message message, Quote quote) {
    message.setText(INSTRUMENT, 12, quote.instrument);
    putDecimal(message.getData(), BID, quote.bid);
    putDecimal(message.getData(), ASK, quote.ask);
    message.getData().putLong(VOLUME, quote.volume == null ? NO_VOLUME : quote.volume);
    if (message instanceof StreamDataMessage) {
      ((StreamDataMessage) message).setNull(VOLUME_FIELD, quote.volume == null);
    }
  }

  private static Quote read(Message message) {
    final long volume = message.getData().getLong(VOLUME);
    final boolean none = message instanceof StreamDataMessage
        ? ((StreamDataMessage) message).isNull(VOLUME_FIELD) : volume == NO_VOLUME;
    return new Quote(message.getText(INSTRUMENT, 12), message.getDecimal(BID),
        message.getDecimal(ASK), none ? null : volume);
  }

  private static void putDecimal(ByteBuffer data, int offset, BigDecimal value) {
    data.putLong(offset, value.unscaledValue().longValueExact()).put(offset + 8, (byte) value.scale());
  }

  private void print(double seconds) {
    System.out.printf("%-12s%10s%10s%10s%n", "instrument", "bid", "ask", "volume");
    last.values().forEach(System.out::println);
    System.out.printf("%n%d of %d quotes came back, of %d instruments; %.0f messages per second%n",
        received, quotes.size(), last.size(), received / seconds);
  }

  public static void main(String[] args) throws Exception {
    final List<String> options = Arrays.asList(args);
    final int rate = options.indexOf("--rate");
    final QuotesDemo demo = new QuotesDemo(Quote.readAll(Paths.get(args[0])));
    demo.run(rate < 0 ? 0 : Integer.parseInt(args[rate + 1]), options.contains("--replica"));
    if (demo.received != demo.quotes.size()) System.exit(1);
  }
}
