package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Receives the messages of a {@link Listener}. */
@FunctionalInterface
public interface ISubscriber {
  /**
   * Takes one message. Called on the thread that is inside a call of the listener or its
   * connection, mostly {@link Connection#process}, with the connection's lock held; such calls,
   * releasing the three objects included, may be made from here. Calls on other connections from
   * here can deadlock with a thread that does the same the other way round.
   *
   * <p><b>The message ends with this call.</b> The object is used again for the next message of its
   * kind, and its buffer points into memory that the gateway frees. Neither may be kept; keep a
   * {@link Message#copy}. The message object refuses to be read later, a buffer cannot.
   *
   * @return 0 to go on; anything else ends the call that delivers, which throws an {@link
   *     OxliException} with this code. What is thrown here comes out of that call instead.
   */
  int onMessage(Connection connection, Listener listener, Message message);
}
