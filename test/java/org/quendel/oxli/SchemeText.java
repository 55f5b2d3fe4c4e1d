package org.quendel.oxli;

import java.nio.ByteBuffer;

/** All that a scheme's objects say, without addresses: a line for each. */
final class SchemeText {
  private final StringBuilder lines = new StringBuilder();

  private SchemeText() {}

  static String of(Scheme scheme) {
    final SchemeText text = new SchemeText();
    text.line(0, "scheme", scheme.getType(), scheme.getFeatures());
    for (MessageDesc message : scheme.getMessages()) text.message(1, message);
    return text.lines.toString();
  }

  private void message(int depth, MessageDesc message) {
    if (message == null) {
      line(depth, "message", "null");
      return;
    }
    line(depth, "message", message.getNumber(), message.getName(), message.getDescription(),
        message.getHints());
    for (FieldDesc field : message.getFields()) field(depth + 1, field);
    for (IndexDesc index : message.getIndices()) index(depth + 1, index);
  }

  private void field(int depth, FieldDesc field) {
    if (field == null) {
      line(depth, "field", "null");
      return;
    }
    line(depth, "field", field.getNumber(), field.getName(), field.getDescription(),
        field.getType(), field.getSize(), field.getOffset(), bytes(field.getValue()),
        field.getPosition());
    for (FieldValueDesc value : field.getValues()) {
      line(depth + 1, "value", value == null ? "null" : value.getName() + ' '
          + value.getDescription() + ' ' + bytes(value.getValue()) + ' ' + value.getIntValue());
    }
    if (field.getMessage() != null) message(depth + 1, field.getMessage());
  }

  private void index(int depth, IndexDesc index) {
    if (index == null) {
      line(depth, "index", "null");
      return;
    }
    line(depth, "index", index.getName(), index.getDescription(), index.getHints());
    for (IndexFieldDesc member : index.getFields()) {
      line(depth + 1, "member", member == null ? "null" : member.getParameter());
      if (member != null) field(depth + 2, member.getField());
    }
  }

  private void line(int depth, Object... words) {
    lines.append(" ".repeat(depth));
    for (Object word : words) lines.append(word).append(' ');
    lines.setCharAt(lines.length() - 1, '\n');
  }

  private static String bytes(ByteBuffer value) {
    if (value == null) return "-";
    final StringBuilder hex = new StringBuilder("0x");
    for (int i = 0; i < value.capacity(); ++i) hex.append(String.format("%02x", value.get(i)));
    return hex.toString();
  }
}
