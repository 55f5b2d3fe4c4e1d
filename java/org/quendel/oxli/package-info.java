/**
 * Client API of the message gateway.
 *
 * <pre>{@code
 * try (Environment env = Environment.open("log=stderr");
 *     Connection conn = env.newConnection("host=gateway");
 *     Listener orders = conn.newListener("stream=orders", (c, l, message) -> {
 *       System.out.println(message.dump());
 *       return 0;
 *     })) {
 *   conn.open("");
 *   orders.open("");
 *   while (running) conn.process(100);
 * }
 * }</pre>
 *
 * <p>Settings strings are passed to the gateway unchanged. Exceptions and {@code toString} contain
 * their first 60 characters, without passwords. {@code open} opens an object. {@code shut} closes
 * it in the gateway only, so that it can be opened again. {@code close} closes the objects made
 * from it and releases it. A second {@code close} does nothing, also on another thread. Any other
 * use after the release throws {@link java.lang.IllegalStateException}. An object whose {@code
 * close} throws an {@link org.quendel.oxli.OxliException} is closed nevertheless.
 *
 * <p>All objects except messages are thread-safe. Only the thread inside {@code onMessage} may use
 * a delivered message. Only one thread at a time may fill an outgoing message, and no thread may
 * close the message or its publisher meanwhile. {@link org.quendel.oxli.Connection} describes which
 * calls wait for each other, {@link org.quendel.oxli.ISubscriber} which can deadlock, {@link
 * org.quendel.oxli.Environment} how to close in a shutdown hook, and {@link
 * org.quendel.oxli.Connection#process} what to do with virtual threads. If the gateway refuses an
 * operation, an {@link org.quendel.oxli.OxliException} is thrown.
 *
 * <p>Strings outside payloads (settings, names, addresses, log lines, strings of a scheme) are
 * converted to and from the virtual machine's modified UTF-8. Its encoding of U+0000 and of
 * characters above U+FFFF differs from standard UTF-8: do not use these characters in strings that
 * other programs read or write. Strings in payloads are standard UTF-8.
 */
package org.quendel.oxli;
