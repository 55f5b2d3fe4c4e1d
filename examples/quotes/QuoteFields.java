import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.messages.Message;
import org.quendel.oxli.messages.StreamDataMessage;

/** The fields of a quote, looked up once for all messages of an opening. */
final class QuoteFields {
  static final String SCHEME = "scheme=?{messages=prices,quote;"
      + "message.prices=?{desc=Best prices;fields=bid:d,ask:d};"
      + "message.quote=?{id=1;desc=Quote of an instrument;hints=?{source=file};"
      + "fields=instrument:c12,prices:m,volume:i8,tick:i1;indices=pk;"
      + "index.pk=?{fields=instrument;desc=Last quote of each instrument;hints=?{unique=1}};"
      + "field.instrument=?{desc=Ticker};field.prices=?{message=prices};"
      + "field.volume=?{desc=Shares on offer};"
      + "field.tick=?{desc=Where the bid went;values=?{down=-1:lower;same=0;up=1:higher}}}}";

  private static final long NO_VOLUME = -1; // in a stream without null maps

  private final FieldDesc instrument;
  private final FieldDesc bid;
  private final FieldDesc ask;
  private final FieldDesc volume;
  private final FieldDesc tick;

  QuoteFields(MessageDesc quote) {
    instrument = quote.getField("instrument");
    bid = quote.getField("prices").getField("bid");
    ask = quote.getField("prices").getField("ask");
    volume = quote.getField("volume");
    tick = quote.getField("tick");
  }

  void write(Message message, Quote quote) {
    instrument.setText(message, quote.instrument);
    bid.setDecimal(message, quote.bid);
    ask.setDecimal(message, quote.ask);
    volume.setLong(message, quote.volume == null ? NO_VOLUME : quote.volume);
    tick.setValueName(message, quote.tick);
    if (message instanceof StreamDataMessage) {
      volume.setNull((StreamDataMessage) message, quote.volume == null);
    }
  }

  Quote read(Message message) {
    final long shares = volume.getLong(message);
    final boolean none = message instanceof StreamDataMessage
        ? volume.isNull((StreamDataMessage) message) : shares == NO_VOLUME;
    return new Quote(instrument.getText(message), bid.getDecimal(message), ask.getDecimal(message),
        none ? null : shares, tick.getValueName(message));
  }
}
