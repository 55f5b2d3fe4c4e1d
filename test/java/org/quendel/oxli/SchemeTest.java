package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import com.sun.management.ThreadMXBean;
import java.lang.management.ManagementFactory;
import java.math.BigDecimal;
import java.nio.*;
import java.nio.file.*;
import java.util.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.quendel.oxli.messages.*;

class SchemeTest extends GatewayTest {
  private static final String FIELDS = "scheme=?{messages=inner,all,small;"
      + "message.inner=?{fields=n:u2,z:z};message.small=?{fields=a:i1};"
      + "message.all=?{noindex=1;id=1;fields=a:i1,b:i2,c:i4,d:i8,e:u1,f:u2,g:u4,h:u8,"
      + "text:c4,price:d,block:z,pair:m,last:u1;"
      + "field.pair=?{message=inner};field.last=?{offset=200;values=?{top=255:T;one=1}}}};";

  /** The first line of the file is the scheme in settings; the other lines are its conversion. */
  @Test
  void wholeSchemeIsConverted() throws Exception {
    final String golden = Files.readString(Path.of(System.getProperty("oxli.test.scheme")));
    final int end = golden.indexOf('\n');
    final Publisher publisher = publish(golden.substring(0, end));
    final Listener listener = listen("", onData(message -> {}));
    assertEquals(golden.substring(end + 1), publisher.getScheme().toString());
    assertEquals(golden.substring(end + 1), listener.getScheme().toString());
    assertSame(listener.getScheme(), listener.getScheme());
  }

  @ParameterizedTest
  @CsvSource({"a, -128, 127", "b, -32768, 32767", "c, -2147483648, 2147483647",
      "d, -9223372036854775808, 9223372036854775807", "e, 0, 255", "f, 0, 65535",
      "g, 0, 4294967295", "h, -9223372036854775808, 9223372036854775807"})
  void integersHaveTheRangeOfTheirType(String name, long least, long greatest) {
    final DataMessage message = publish(FIELDS).newMessage("all");
    final FieldDesc field = message.getDesc().getField(name);
    for (long value : new long[] {least, greatest, 0, 1}) {
      field.setLong(message, value);
      assertEquals(value, field.getLong(message));
      final byte[] bytes = new byte[field.getSize()];
      message.getData().duplicate().position(field.getOffset()).get(bytes);
      for (int i = 0; i < bytes.length; ++i) assertEquals((byte) (value >> 8 * i), bytes[i]);
    }
    final ThreadMXBean threads = (ThreadMXBean) ManagementFactory.getThreadMXBean();
    final long thread = Thread.currentThread().getId();
    final long before = threads.getThreadAllocatedBytes(thread);
    final int times = 100_000;
    long sum = 0;
    for (int i = 0; i < times; ++i) sum += field.getLong(message);
    assertTrue(threads.getThreadAllocatedBytes(thread) - before < times, "reads do not allocate");
    assertEquals(times, sum);
    if (field.getSize() == Long.BYTES) return;
    for (long value : new long[] {least - 1, greatest + 1, Long.MIN_VALUE}) {
      assertThrows(IllegalArgumentException.class, () -> field.setLong(message, value));
    }
    assertEquals(1, field.getLong(message));
  }

  @Test
  void fieldsOfEveryTypeAreReadAndWritten() {
    final Publisher publisher = publish("mode=replica;" + FIELDS);
    final StreamDataMessage row = publisher.newMessage("all");
    final MessageDesc all = row.getDesc();
    final FieldDesc text = all.getField("text");
    final FieldDesc price = all.getField("price");
    final FieldDesc pair = all.getField("pair");
    final FieldDesc last = all.getField("last");
    text.setText(row, "€1");
    price.setDecimal(row, new BigDecimal("-1.20"));
    pair.getField("n").setLong(row, 0xfffe);
    final ByteBuffer top = last.getValue("top").getValue();
    assertFalse(top.isDirect(), "a copy of the gateway's bytes");
    top.order(ByteOrder.BIG_ENDIAN).limit(0);
    last.setValueName(row, "top");
    price.setNull(row, true);
    // The application may change the buffer's limit and order.
    row.getData().order(ByteOrder.BIG_ENDIAN).limit(3);

    final List<Object> seen = new ArrayList<>();
    listen("", onData(message -> {
      final FieldDesc n = pair.getField("n");
      Collections.addAll(seen, text.getText(message), price.getDecimal(message), n.getLong(message),
          pair.getNested(message).getShort(0), last.getValueName(message), last.getLong(message),
          price.isNull(((StreamDataMessage) message).copy()),
          text.isNull((StreamDataMessage) message), text.getBytes(message).get(3));
    }));
    for (BigDecimal refused : List.of(new BigDecimal("1e-19"), new BigDecimal("1e300"),
        BigDecimal.valueOf(Long.MAX_VALUE).add(BigDecimal.ONE))) {
      assertThrows(IllegalArgumentException.class, () -> price.setDecimal(row, refused));
    }
    publisher.post(row);
    connection.process(0);
    assertEquals(List.of("€1", new BigDecimal("-1.20"), 0xfffeL, (short) -2, "top", 255L, true,
        false, (byte) '1'), seen);
    last.setLong(row, 2);
    assertNull(last.getValueName(row));
    assertThrows(NoSuchElementException.class, () -> last.setValueName(row, "two"));
  }

  @Test
  void fieldsOfOtherTypesAndPayloadsAreRefused() {
    final Publisher publisher = publish(FIELDS);
    final DataMessage message = publisher.newMessage("all");
    final DataMessage small = publisher.newMessage("small");
    final MessageDesc all = message.getDesc();
    final ZBlock block = environment.newZBlock(ByteBuffer.allocateDirect(1));
    for (FieldDesc field : all.getFields()) {
      final boolean integer = field.getName().length() == 1 || field.getName().equals("last");
      assertType(integer, () -> field.getLong(message));
      assertType(integer, () -> field.setLong(message, 0));
      assertType(integer, () -> field.getValueName(message));
      assertType(field.getName().equals("text"), () -> field.getText(message));
      assertType(field.getName().equals("text"), () -> field.setText(message, ""));
      assertType(field.getName().equals("price"), () -> field.getDecimal(message));
      assertType(field.getName().equals("price"), () -> field.setDecimal(message, BigDecimal.ONE));
      assertType(field.getName().equals("pair"), () -> field.getNested(message));
      assertType(field.getName().equals("block"), () -> field.setZBlock(message, block));
      if (field.getOffset() > 0) {
        final Exception refused =
            assertThrows(IndexOutOfBoundsException.class, () -> field.getBytes(small));
        assertTrue(
            refused.getMessage().startsWith("field " + field.getName()), refused::getMessage);
      }
    }
    final StreamDataMessage row =
        publish("stream=r;mode=replica;" + FIELDS).newMessage("all");
    for (FieldDesc nested : List.of(all.getField("pair").getField("n"),
        all.getField("pair").getMessage().getField("n"))) {
      assertThrows(IllegalArgumentException.class, () -> nested.isNull(row));
    }
    assertThrows(NoSuchElementException.class, () -> all.getField("x"));
    assertThrows(NoSuchElementException.class, () -> all.getField("a").getField("n"));
    assertThrows(NoSuchElementException.class, () -> all.getIndex("x"));
    assertThrows(NoSuchElementException.class, () -> message.getScheme().getMessage("x"));
    message.close();
    assertThrows(IllegalStateException.class, () -> all.getField("a").getLong(message));
  }

  private static void assertType(boolean right, Executable use) {
    if (right) {
      assertDoesNotThrow(use);
    } else {
      assertThrows(IllegalArgumentException.class, use);
    }
  }
}
