package org.quendel.oxli;

import static org.junit.jupiter.api.Assertions.*;

import com.sun.management.ThreadMXBean;
import java.lang.management.ManagementFactory;
import java.math.BigDecimal;
import java.nio.*;
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

  /** A scheme text made at random, and what SchemeText should say of it. */
  private static final class RandomScheme {
    private final Random random;
    private final StringBuilder messages = new StringBuilder();
    private final StringBuilder details = new StringBuilder();
    private final StringBuilder expected = new StringBuilder("scheme 0 0\n");
    private final List<String> bodies = new ArrayList<>(); // of the messages, not indented
    private final List<Integer> sizes = new ArrayList<>();

    RandomScheme(long seed) {
      random = new Random(seed);
      for (int i = 0, count = 1 + random.nextInt(4); i < count; ++i) addMessage(i);
    }

    String text() {
      return "scheme=?{messages=" + messages.substring(1) + details + "};";
    }

    private void addMessage(int number) {
      final String name = "m" + number;
      final long id = random.nextBoolean() ? 0xffffffffL : random.nextInt(1 << 30);
      final String description = description();
      final StringBuilder fields = new StringBuilder();
      final StringBuilder own = new StringBuilder(";desc=" + description);
      if (id != 0xffffffffL) own.append(";id=").append(id);
      final StringBuilder body = new StringBuilder(
          "message " + id + ' ' + name + ' ' + description + ' ' + hints(own) + '\n');
      final List<String> lines = new ArrayList<>();
      int end = 0;
      int size = 0;
      for (int i = 0, count = 1 + random.nextInt(20); i < count; ++i) {
        final int nested = random.nextInt(8) == 0 && number > 0 ? random.nextInt(number) : -1;
        final String type = nested >= 0 ? "m" : type();
        final int width = nested >= 0 ? sizes.get(nested) : widthOf(type);
        final boolean moved = random.nextInt(6) == 0;
        final int offset = moved ? size + random.nextInt(9) : end;
        final String fieldDescription = description();
        fields.append(",f").append(i).append(':').append(type);
        own.append(";field.f").append(i).append("=?{desc=").append(fieldDescription);
        if (moved) own.append(";offset=").append(offset);
        final StringBuilder field = new StringBuilder(String.format(
            "field %d f%d %s %s %d %d - %d%n", i, i, fieldDescription, type, width, offset, i));
        if (nested >= 0) {
          own.append(";message=m").append(nested);
          field.append(
              indented(1, bodies.get(nested)).replaceAll("(?m)(field .* - )\\d+$", "$1-1"));
        } else if ("iu".indexOf(type.charAt(0)) >= 0 && random.nextInt(3) == 0) {
          values(type, width, own, field);
        }
        own.append('}');
        lines.add(field.toString());
        body.append(indented(1, field.toString()));
        end = offset + width;
        size = Math.max(size, end);
      }
      body.append(index(lines, own));
      messages.append(',').append(name);
      details.append(";message.").append(name).append("=?{fields=").append(fields.substring(1))
          .append(own).append('}');
      bodies.add(body.toString());
      sizes.add(size);
      expected.append(indented(1, body.toString()));
    }

    private void values(String type, int width, StringBuilder own, StringBuilder field) {
      own.append(";values=?{");
      for (int i = 0, count = 1 + random.nextInt(3); i < count; ++i) {
        final long bits = random.nextLong() << Long.SIZE - Byte.SIZE * width;
        final long value = bits >> Long.SIZE - Byte.SIZE * width;
        own.append('v').append(i).append('=').append(type.charAt(0) == 'i' ? Long.toString(value)
            : Long.toUnsignedString(bits >>> Long.SIZE - Byte.SIZE * width)).append(":d;");
        field.append(" value v").append(i).append(" d 0x");
        for (int b = 0; b < width; ++b) field.append(String.format("%02x", value >> 8 * b & 0xff));
        field.append(' ').append(value).append('\n');
      }
      own.append('}');
    }

    private String index(List<String> fields, StringBuilder own) {
      // Not the first index: it may not hold z-blocks and others have no such rule.
      own.append(";indices=none,k;index.k=?{desc=x");
      final StringBuilder lines = new StringBuilder(" index none  {}\n index k x " + hints(own) + '\n');
      final StringBuilder members = new StringBuilder();
      for (int i = 0, count = random.nextInt(4); i < count; ++i) {
        final int field = random.nextInt(fields.size());
        final int parameter = random.nextInt();
        members.append(",f").append(field).append(':').append(parameter);
        lines.append("  member ").append(parameter).append('\n')
            .append(indented(3, fields.get(field)));
      }
      if (members.length() > 0) own.append(";fields=").append(members.substring(1));
      own.append('}');
      return lines.toString();
    }

    private String hints(StringBuilder own) {
      final Map<String, String> hints = new TreeMap<>();
      for (int i = random.nextInt(4); i > 0; --i) hints.put("h" + i, description());
      own.append(";hints=?{");
      hints.forEach((key, value) -> own.append(key).append('=').append(value).append(';'));
      own.append('}');
      return hints.toString();
    }

    private String type() {
      final String[] types = {"i1", "i2", "i4", "i8", "u1", "u2", "u4", "u8", "d", "z", "c"};
      final String type = types[random.nextInt(types.length)];
      return type.equals("c") ? "c" + (1 + random.nextInt(30)) : type;
    }

    private static int widthOf(String type) {
      return type.equals("d") ? 9 : type.equals("z") ? 12 : Integer.parseInt(type.substring(1));
    }

    private static String indented(int depth, String lines) {
      return lines.replaceAll("(?m)^(?=.)", " ".repeat(depth));
    }

    private String description() {
      return "dü€ x".substring(0, random.nextInt(6));
    }
  }

  @Test
  void schemesMadeAtRandomArriveWhole() {
    for (int seed = 0; seed < 200; ++seed) {
      final RandomScheme made = new RandomScheme(seed);
      final String stream = "stream=s" + seed + ';';
      try (Publisher publisher = publish(stream + made.text());
          Listener listener = listen(stream, onData(message -> {}))) {
        assertEquals(made.expected.toString(), SchemeText.of(publisher.getScheme()));
        assertEquals(made.expected.toString(), SchemeText.of(listener.getScheme()));
        assertSame(listener.getScheme(), listener.getScheme());
      }
    }
  }

  @ParameterizedTest
  @CsvSource({"a, -128, 127", "b, -32768, 32767", "c, -2147483648, 2147483647",
      "d, -9223372036854775808, 9223372036854775807", "e, 0, 255", "f, 0, 65535",
      "g, 0, 4294967295", "h, -9223372036854775808, 9223372036854775807"})
  void integersKeepTheirSignAndRange(String name, long least, long greatest) {
    final DataMessage message = publish(FIELDS).newMessage("all");
    final FieldDesc field = message.getDesc().getField(name);
    for (long value : new long[] {least, greatest, 0, 1}) {
      field.setLong(message, value);
      assertEquals(value, field.getLong(message));
      final byte[] bytes = new byte[field.getSize()];
      message.getData().duplicate().position(field.getOffset()).get(bytes);
      for (int i = 0; i < bytes.length; ++i) assertEquals((byte) (value >> 8 * i), bytes[i]);
    }
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
    last.setValueName(row, "top");
    price.setNull(row, true);
    // The buffer's limit and order are the application's.
    row.getData().order(ByteOrder.BIG_ENDIAN).limit(3);

    final List<Object> seen = new ArrayList<>();
    listen("", onData(message -> {
      final FieldDesc n = pair.getField("n");
      Collections.addAll(seen, text.getText(message), price.getDecimal(message), n.getLong(message),
          pair.getNested(message).getShort(0), last.getValueName(message), last.getLong(message),
          price.isNull((StreamDataMessage) message), text.isNull((StreamDataMessage) message),
          text.getBytes(message).get(3));
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
  void otherTypesAndPayloadsAreRefused() {
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
        assertTrue(refused.getMessage().startsWith("field " + field.getName()), refused::getMessage);
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

  @Test
  void readingAnIntegerAllocatesNothing() {
    final DataMessage message = publish(FIELDS).newMessage("all");
    final ThreadMXBean threads = (ThreadMXBean) ManagementFactory.getThreadMXBean();
    final long thread = Thread.currentThread().getId();
    final int times = 100_000;
    for (FieldDesc field : message.getDesc().getFields().subList(0, 8)) {
      field.setLong(message, 7);
      final long before = threads.getThreadAllocatedBytes(thread);
      long sum = 0;
      for (int i = 0; i < times; ++i) sum += field.getLong(message);
      assertTrue(threads.getThreadAllocatedBytes(thread) - before < times);
      assertEquals(7L * times, sum);
    }
  }
}
