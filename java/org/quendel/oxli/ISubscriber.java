package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Receives the messages of a {@link Listener}. */
@FunctionalInterface
public interface ISubscriber {
  /**
   * Takes one message. Called on the thread that is inside a call of the listener or its
   * connection, mostly {@link Connection#process}, with the connection's lock held; such calls,
   * releasing the three objects included, may be made from here. Inside a
   * call that opens, shuts or closes, this must not wait for another thread: such calls of the whole
   * process run one at a time, so the other one may be waiting for this. Nor may it wait for another
   * connection, which a thread may hold that waits for this one.
   *
   * <p><b>The message ends with this call.</b> The object is used again for the next message of its
   * kind, and its buffer points into memory that the gateway frees. Neither may be kept; keep a
   * {@link Message#copy}. The message object refuses to give its payload later, until it shows
   * the next message; a buffer cannot. A call from here that delivers again ends this message too if
   * one of its kind comes.
   *
   * @return 0 to go on; anything else ends the call that delivers, which throws an {@link
   *     OxliException} with this code; the gateway may ignore it for what it delivers while it closes.
   *     What is thrown here comes out of that call instead.
   */
  int onMessage(Connection connection, Listener listener, Message message);
}
