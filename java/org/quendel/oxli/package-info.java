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
 * <p>Settings are texts of the gateway's, passed on as they are. Opening an object is {@code open},
 * closing it so that it can be opened again is {@code shut}; {@code close} releases it for good,
 * after the objects made from it. Releasing twice is harmless, also on two threads; any other use
 * after the release throws {@link java.lang.IllegalStateException}. A release that reports an error
 * has released all the same.
 *
 * <p>Objects are thread-safe, except messages: one thread at a time fills or reads a message, and
 * nothing that it came from may be released meanwhile. What the gateway refuses is an {@link
 * org.quendel.oxli.OxliException}.
 *
 * <p>Texts outside payloads (settings, names, addresses, log lines, what a scheme says) pass through
 * the virtual machine's modified UTF-8 in both directions: U+0000 and characters beyond U+FFFF are
 * encoded otherwise there than in standard UTF-8, and do not survive an exchange with programs that
 * use that. Texts in payloads are standard UTF-8.
 */
package org.quendel.oxli;
