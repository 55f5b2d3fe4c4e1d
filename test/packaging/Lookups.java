import java.lang.invoke.MethodType;
import java.lang.reflect.Executable;
import java.lang.reflect.Method;
import java.nio.charset.StandardCharsets;
import java.util.*;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Prints the lookups of a table, one on each line: CLASS, or CLASS NAME DESCRIPTOR with the class
 * that declares the method. Reads standard input: a table for GraalVM or for shrinkers, whose
 * classes declare their methods; with the argument {@code lookups}, lines of the printed form,
 * whose classes may inherit their methods. Fails if a class or method does not exist.
 */
final class Lookups {
  private static final Pattern CLASS =
      Pattern.compile("^ +\\{\"name\": \"([^\"]+)\"|^-.* class (org\\S+[^*]) \\{");
  private static final Pattern METHOD = Pattern.compile(
      "\"name\": \"([^\"]+)\", \"parameterTypes\": \\[((?:\"[^\"]+\"(?:, )?)*)\\]"
      + "|^  (?:\\S+ )?(\\S+)\\((.*)\\);");

  public static void main(String[] arguments) throws Exception {
    final String input = new String(System.in.readAllBytes(), StandardCharsets.UTF_8);
    final Set<String> found = new TreeSet<>();
    Class<?> owner = null;
    for (String line : input.split("\n")) {
      final Matcher method = METHOD.matcher(line);
      final Matcher type = CLASS.matcher(line);
      if (arguments.length > 0) {
        found.add(resolve(line.split(" ")));
      } else if (method.find()) {
        final boolean json = method.group(1) != null;
        found.add(declared(owner, method.group(json ? 1 : 3),
            typesOf(method.group(json ? 2 : 4).replace("\"", ""))));
      } else if (type.find()) {
        owner = typeOf(type.group(1) != null ? type.group(1) : type.group(2));
        found.add(nameOf(owner));
      }
    }
    found.forEach(System.out::println);
  }

  private static String resolve(String[] lookup) throws Exception {
    Class<?> owner = typeOf(lookup[0].replace('/', '.'));
    if (lookup.length == 1) return nameOf(owner);
    final Class<?>[] types = MethodType.fromMethodDescriptorString(lookup[2],
        ClassLoader.getSystemClassLoader()).parameterArray();
    for (; ; owner = owner.getSuperclass()) {
      try {
        return declared(owner, lookup[1], types);
      } catch (NoSuchMethodException e) {
        if (owner.getSuperclass() == null) throw e;
      }
    }
  }

  private static String declared(Class<?> owner, String name, Class<?>[] types) throws Exception {
    final Executable found = name.equals("<init>") ? owner.getDeclaredConstructor(types)
        : owner.getDeclaredMethod(name, types);
    final Class<?> result = found instanceof Method ? ((Method) found).getReturnType() : void.class;
    return nameOf(owner) + ' ' + name + ' '
        + MethodType.methodType(result, types).toMethodDescriptorString();
  }

  private static Class<?>[] typesOf(String names) throws Exception {
    final List<Class<?>> types = new ArrayList<>();
    for (String name : names.isEmpty() ? new String[0] : names.split(", ")) types.add(typeOf(name));
    return types.toArray(new Class<?>[0]);
  }

  private static Class<?> typeOf(String name) throws Exception {
    if (name.endsWith("[]")) {
      return java.lang.reflect.Array.newInstance(
          typeOf(name.substring(0, name.length() - 2)), 0).getClass();
    }
    for (Class<?> primitive : List.of(boolean.class, int.class, long.class)) {
      if (primitive.getName().equals(name)) return primitive;
    }
    return Class.forName(name, false, ClassLoader.getSystemClassLoader());
  }

  private static String nameOf(Class<?> type) {
    return type.getName().replace('.', '/');
  }
}
