/**
 * Client of the message gateway.
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
 * <p>Settings are strings of the gateway, passed on as they are; exceptions and {@code toString}
 * show how they begin. {@code open} opens an object, {@code shut} closes it so that it can be
 * opened again, {@code close} releases it for good, after the objects made from it. A second {@code
 * close} does nothing, also on another thread; any other use after the release throws {@link
 * java.lang.IllegalStateException}. A release that reports an error has released all the same.
 *
 * <p>Objects are thread-safe, except messages. A delivered message belongs to the thread inside
 * {@code onMessage}; an outgoing one is filled by one thread at a time, and neither it nor its
 * publisher may be closed meanwhile. Where threads wait for each other, and what can deadlock, is
 * said in {@link org.quendel.oxli.Connection} and {@link org.quendel.oxli.ISubscriber}. Closing in
 * a shutdown hook: {@link org.quendel.oxli.Environment}. Virtual threads: {@link
 * org.quendel.oxli.Connection#process}. What the gateway refuses is an {@link
 * org.quendel.oxli.OxliException}.
 *
 * <p>Strings outside payloads (settings, names, addresses, log lines, what a scheme says) pass
 * through the virtual machine's modified UTF-8 in both directions: U+0000 and characters beyond
 * U+FFFF have another encoding there than in standard UTF-8, and do not survive an exchange with
 * programs that use that. Strings in payloads are standard UTF-8.
 */
package org.quendel.oxli;
