/**
 * The Java API of the message gateway.
 *
 * <p>Its native library is found by the rules of {@link org.quendel.oxli.Environment#open}. Virtual
 * machines from version 24 on warn unless {@code --enable-native-access=org.quendel.oxli} is given.
 */
module org.quendel.oxli {
  exports org.quendel.oxli;
  exports org.quendel.oxli.messages;
}
