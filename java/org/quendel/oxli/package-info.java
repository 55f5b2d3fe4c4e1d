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
 * <p>Objects are thread-safe, except messages. What the gateway refuses is an {@link
 * org.quendel.oxli.OxliException}.
 */
package org.quendel.oxli;
