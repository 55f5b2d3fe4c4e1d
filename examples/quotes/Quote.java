import java.io.IOException;
import java.math.BigDecimal;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;

/** One line of the quotes file. */
final class Quote {
  private static final String[] TICKS = {"down", "same", "up"};

  final String instrument;
  final BigDecimal bid;
  final BigDecimal ask;
  final Long volume; // null if unknown
  final String tick; // whether the bid is below, equal to or above the instrument's previous bid

  Quote(String instrument, BigDecimal bid, BigDecimal ask, Long volume, String tick) {
    this.instrument = instrument;
    this.bid = bid;
    this.ask = ask;
    this.volume = volume;
    this.tick = tick;
  }

  /** Reads lines of {@code millis,instrument,bid,ask,volume} after one that names the columns. */
  static List<Quote> readAll(Path file) throws IOException {
    final List<Quote> quotes = new ArrayList<>();
    final Map<String, BigDecimal> lastBids = new HashMap<>();
    final List<String> lines = Files.readAllLines(file);
    for (String line : lines.subList(Math.min(1, lines.size()), lines.size())) {
      final String[] cells = line.split(",", -1);
      final BigDecimal bid = new BigDecimal(cells[2]);
      final BigDecimal last = lastBids.put(cells[1], bid);
      quotes.add(new Quote(cells[1], bid, new BigDecimal(cells[3]),
          cells[4].isEmpty() ? null : Long.valueOf(cells[4]),
          TICKS[1 + (last == null ? 0 : bid.compareTo(last))]));
    }
    return quotes;
  }

  boolean sameAs(Quote other) {
    return instrument.equals(other.instrument) && bid.equals(other.bid) && ask.equals(other.ask)
        && Objects.equals(volume, other.volume) && tick.equals(other.tick);
  }

  @Override
  public String toString() {
    return String.format("%-12s%10s%10s%10s  %s", instrument, bid, ask,
        volume == null ? "-" : volume, tick);
  }
}
