import java.io.IOException;
import java.math.BigDecimal;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Objects;
import java.util.stream.Collectors;

/** One line of the quotes file. */
final class Quote {
  final String instrument;
  final BigDecimal bid;
  final BigDecimal ask;
  final Long volume; // null: not known

  Quote(String instrument, BigDecimal bid, BigDecimal ask, Long volume) {
    this.instrument = instrument;
    this.bid = bid;
    this.ask = ask;
    this.volume = volume;
  }

  /** Reads lines of {@code millis,instrument,bid,ask,volume} after one that names the columns. */
  static List<Quote> readAll(Path file) throws IOException {
    return Files.readAllLines(file).stream().skip(1).map(Quote::parse)
        .collect(Collectors.toList());
  }

  private static Quote parse(String line) {
    final String[] cells = line.split(",", -1);
    return new Quote(cells[1], new BigDecimal(cells[2]), new BigDecimal(cells[3]),
        cells[4].isEmpty() ? null : Long.valueOf(cells[4]));
  }

  boolean sameAs(Quote other) {
    return instrument.equals(other.instrument) && bid.equals(other.bid) && ask.equals(other.ask)
        && Objects.equals(volume, other.volume);
  }

  @Override
  public String toString() {
    return String.format("%-12s%10s%10s%10s", instrument, bid, ask, volume == null ? "-" : volume);
  }
}
