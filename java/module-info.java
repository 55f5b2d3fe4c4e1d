/**
 * The Java API of the message gateway.
 *
 * <p>{@link org.quendel.oxli.Environment#open} describes where the native library is searched for.
 * Java 24 and later warn unless {@code --enable-native-access=org.quendel.oxli} is given.
 */
module org.quendel.oxli {
  exports org.quendel.oxli;
  exports org.quendel.oxli.messages;
}
