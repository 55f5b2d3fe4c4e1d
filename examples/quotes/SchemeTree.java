import java.util.Map;
import org.quendel.oxli.FieldDesc;
import org.quendel.oxli.FieldValueDesc;
import org.quendel.oxli.IndexDesc;
import org.quendel.oxli.IndexFieldDesc;
import org.quendel.oxli.MessageDesc;
import org.quendel.oxli.Scheme;

/** A scheme as a tree of lines. */
final class SchemeTree {
  private final StringBuilder lines = new StringBuilder();

  private SchemeTree() {}

  static String of(Scheme scheme) {
    final SchemeTree tree = new SchemeTree();
    tree.line("", "scheme of type " + scheme.getType() + ", features " + scheme.getFeatures(), "");
    for (MessageDesc message : scheme.getMessages()) tree.message("  ", message);
    return tree.lines.toString();
  }

  private void message(String indent, MessageDesc message) {
    line(indent, "message " + message.getName(), message.getDescription());
    final String inner = indent + "  ";
    hints(inner, message.getHints());
    for (FieldDesc field : message.getFields()) field(inner, field);
    for (IndexDesc index : message.getIndices()) index(inner, index);
  }

  private void field(String indent, FieldDesc field) {
    line(indent, String.format("%s: %s, size %d, offset %d", field.getName(), field.getType(),
        field.getSize(), field.getOffset()), field.getDescription());
    final String inner = indent + "  ";
    for (FieldValueDesc value : field.getValues()) {
      line(inner, value.getName() + " = " + value.getIntValue(), value.getDescription());
    }
    if (field.getMessage() != null) message(inner, field.getMessage());
  }

  private void index(String indent, IndexDesc index) {
    line(indent, "index " + index.getName(), index.getDescription());
    final String inner = indent + "  ";
    hints(inner, index.getHints());
    for (IndexFieldDesc member : index.getFields()) {
      line(inner, member.getField().getName() + ", parameter " + member.getParameter(), "");
    }
  }

  private void hints(String indent, Map<String, String> hints) {
    hints.forEach((key, value) -> line(indent, "hint " + key + " = " + value, ""));
  }

  private void line(String indent, String text, String description) {
    lines.append(indent).append(text);
    if (!description.isEmpty()) lines.append("  (").append(description).append(')');
    lines.append('\n');
  }
}
