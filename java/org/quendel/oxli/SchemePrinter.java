package org.quendel.oxli;

import java.nio.ByteBuffer;
import java.util.Map;

/** Prints a scheme as a tree, without addresses; see {@link Scheme#toString}. */
final class SchemePrinter {
  private static final long NO_ID = 0xffffffffL;

  private final StringBuilder lines = new StringBuilder();

  private SchemePrinter() {}

  static String print(Scheme scheme) {
    final SchemePrinter printer = new SchemePrinter();
    printer.line(
        0, "scheme of type " + scheme.getType() + ", features " + scheme.getFeatures(), "");
    for (MessageDesc message : scheme.getMessages()) printer.message(1, message);
    return printer.lines.toString();
  }

  private void message(int depth, MessageDesc message) {
    if (isMissing(depth, "message", message)) return;
    final long id = message.getNumber();
    line(depth, message + (id == NO_ID ? "" : ", id " + id), message.getDescription());
    hints(depth + 1, message.getHints());
    for (FieldDesc field : message.getFields()) field(depth + 1, field, "");
    for (IndexDesc index : message.getIndices()) index(depth + 1, index);
  }

  private void field(int depth, FieldDesc field, String suffix) {
    if (isMissing(depth, "field", field)) return;
    final int position = field.getPosition();
    line(depth, field + ", number " + field.getNumber() + ", size " + field.getSize() + ", offset "
        + field.getOffset() + (position == FieldDesc.NO_POSITION ? "" : ", null flag " + position)
        + bytes(", default ", field.getValue()) + suffix, field.getDescription());
    for (FieldValueDesc value : field.getValues()) {
      if (isMissing(depth + 1, "value", value)) continue;
      line(depth + 1, value + bytes(", bytes ", value.getValue()), value.getDescription());
    }
    if (field.getMessage() != null) message(depth + 1, field.getMessage());
  }

  private void index(int depth, IndexDesc index) {
    if (isMissing(depth, "index", index)) return;
    line(depth, index.toString(), index.getDescription());
    hints(depth + 1, index.getHints());
    for (IndexFieldDesc member : index.getFields()) {
      if (isMissing(depth + 1, "index field", member)) continue;
      field(depth + 1, member.getField(), ", parameter " + member.getParameter());
    }
  }

  /** Returns whether the element is missing. Prints a line if it is. */
  private boolean isMissing(int depth, String kind, Object element) {
    if (element == null) line(depth, kind + " missing", "");
    return element == null;
  }

  private void hints(int depth, Map<String, String> hints) {
    hints.forEach((key, value) -> line(depth, "hint " + key + " = " + value, ""));
  }

  private void line(int depth, String part, String description) {
    lines.append("  ".repeat(depth)).append(part);
    if (!"".equals(description)) lines.append(": ").append(description);
    lines.append('\n');
  }

  private static String bytes(String prefix, ByteBuffer value) {
    if (value == null) return "";
    final StringBuilder hex = new StringBuilder(prefix).append("0x");
    for (int i = 0; i < value.capacity(); ++i) hex.append(String.format("%02x", value.get(i)));
    return hex.toString();
  }
}
