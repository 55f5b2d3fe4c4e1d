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

/** Publishes a file of quotes on a stream, receives each of them, and prints the last ones. */
public final class QuotesDemo {
  private final List<Quote> quotes;
  private final Map<String, Quote> last = new TreeMap<>();
  private QuoteFields fields; // of the listener's scheme; null before the first quote
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
      final Publisher publisher = connection.newPublisher(stream + ';' + QuoteFields.SCHEME);
      publisher.open("");

      final long start = System.nanoTime();
      try (AbstractDataMessage message = publisher.newMessage("quote")) {
        final QuoteFields outgoing = new QuoteFields(message.getDesc());
        for (int i = 0; i < quotes.size(); ++i) {
          outgoing.write(message, quotes.get(i));
          publisher.post(message);
          if (rate > 0) {
            connection.process(0);
            final long elapsedMillis = (System.nanoTime() - start) / 1_000_000;
            Thread.sleep(Math.max(0, (i + 1) * 1000L / rate - elapsedMillis));
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
      if (fields == null) fields = new QuoteFields(((AbstractDataMessage) message).getDesc());
      final Quote quote = fields.read(message);
      if (!quote.sameAs(quotes.get(received))) {
        throw new IllegalStateException("row " + received + " came back as " + quote);
      }
      last.put(quote.instrument, quote);
      ++received;
    }
    return 0;
  }

  private void print(double seconds) {
    System.out.printf("%-12s%10s%10s%10s  %s%n", "instrument", "bid", "ask", "volume", "tick");
    last.values().forEach(System.out::println);
    System.out.printf("%n%d of %d quotes came back, of %d instruments; %.0f messages per second%n",
        received, quotes.size(), last.size(), received / seconds);
  }

  private static void printScheme() {
    try (Environment environment = Environment.open("");
        Connection connection = environment.newConnection("")) {
      connection.open("");
      final Publisher publisher = connection.newPublisher(QuoteFields.SCHEME);
      publisher.open("");
      System.out.print(publisher.getScheme());
    }
  }

  public static void main(String[] args) throws Exception {
    final List<String> options = Arrays.asList(args);
    if (options.contains("--scheme")) {
      printScheme();
      return;
    }
    final int rate = options.indexOf("--rate");
    final QuotesDemo demo = new QuotesDemo(Quote.readAll(Paths.get(args[0])));
    demo.run(rate < 0 ? 0 : Integer.parseInt(args[rate + 1]), options.contains("--replica"));
    if (demo.received != demo.quotes.size()) System.exit(1);
  }
}
