import java.lang.invoke.MethodType;
import java.lang.reflect.Executable;
import java.nio.charset.StandardCharsets;
import java.util.*;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.*;

/**
 * Prints lookups, one on each line: CLASS, or CLASS NAME(TYPES), where CLASS declares the method.
 * Reads a table for GraalVM or for shrinkers from standard input. With the argument {@code
 * lookups}, reads the lines of native code instead: CLASS, or CLASS NAME DESCRIPTOR, where CLASS
 * may also inherit the method. Fails if a class, or the method of a descriptor, does not exist.
 */
final class Lookups {
  // Of lines without quotes.
  private static final Pattern CLASS =
      Pattern.compile("^(?: +\\{name: |-.* class (?=org))([\\w.$]+)[,} ]");
  private static final Pattern METHOD =
      Pattern.compile("(\\S+)(?:\\(|, parameterTypes: \\[)(.*?)(?:\\);|\\]\\})");

  public static void main(String[] arguments) throws Exception {
    final String input = new String(System.in.readAllBytes(), StandardCharsets.UTF_8);
    final Set<String> found = new TreeSet<>();
    String owner = null;
    for (String line : input.replace("\"", "").split("\n")) {
      final Matcher method = METHOD.matcher(line);
      final Matcher type = CLASS.matcher(line);
      if (arguments.length > 0) {
        found.add(resolve(line.split(" ")));
      } else if (method.find()) {
        found.add(owner + ' ' + method.group(1) + '(' + method.group(2) + ')');
      } else if (type.find()) {
        owner = typeOf(type.group(1)).getName();
        found.add(owner);
      }
    }
    found.forEach(System.out::println);
  }

  private static String resolve(String[] lookup) throws Exception {
    Class<?> owner = typeOf(lookup[0].replace('/', '.'));
    if (lookup.length == 1) return owner.getName();
    final Class<?>[] types = MethodType.fromMethodDescriptorString(lookup[2],
        ClassLoader.getSystemClassLoader()).parameterArray();
    final String method = lookup[1] + Stream.of(types).map(Class::getTypeName)
        .collect(Collectors.joining(", ", "(", ")"));
    for (; owner != null; owner = owner.getSuperclass()) {
      try {
        final Executable declared = lookup[1].equals("<init>")
            ? owner.getDeclaredConstructor(types) : owner.getDeclaredMethod(lookup[1], types);
        return declared.getDeclaringClass().getName() + ' ' + method;
      } catch (NoSuchMethodException e) {
        // A superclass may declare it.
      }
    }
    throw new NoSuchMethodException(String.join(" ", lookup));
  }

  private static Class<?> typeOf(String name) throws ClassNotFoundException {
    return Class.forName(name, false, ClassLoader.getSystemClassLoader());
  }
}
