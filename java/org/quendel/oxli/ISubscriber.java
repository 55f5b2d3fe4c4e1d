package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Receives the messages of a {@link Listener}. */
@FunctionalInterface
public interface ISubscriber {
  /**
   * Called for each message.
   *
   * <ul>
   *   <li><b>Thread:</b> the one that is inside a call on the listener or its connection, mostly
   *       {@link Connection#process}. It has locked the connection's delivery lock.
   *   <li><b>Message:</b> only this thread may use it, until this method returns; then the object
   *       is used again for the next message of its kind, and the gateway frees the payload. Pass a
   *       {@link Message#copy} to other threads, and keep a copy. Buffers taken from the message
   *       must not be used afterwards either, which nothing checks.
   *   <li><b>Allowed calls:</b> every call on the connection, its listeners and its publishers,
   *       closing them included. Closing the environment is refused. A call from here that delivers
   *       messages ends the use of this message if it delivers one of the same kind.
   * </ul>
   *
   * <p>The delivery lock of the connection stays locked until this method returns. So these can
   * deadlock:
   *
   * <ul>
   *   <li>To wait for another thread that opens, shuts, closes or processes this connection, or
   *       opens, shuts or closes one of its listeners: that thread waits for the delivery lock.
   *   <li>To open, shut, close or process another connection while a thread inside {@code
   *       onMessage} of that one does the same to this connection: each waits for the other's
   *       delivery lock. Closing the environment on another thread counts, because it closes all
   *       connections.
   *   <li>If this method was not called by {@link Connection#process} but by a call that makes,
   *       opens, shuts or closes a connection or listener: to wait for any other thread, also by
   *       calls on another connection. Such calls of the whole process run one at a time, so the
   *       other thread may wait for this one.
   *   <li>To wait for another thread that uses a publisher, from inside a post on that publisher:
   *       each publisher has a lock.
   * </ul>
   *
   * @return 0 to go on; anything else ends the call that delivers, which throws an {@link
   *     OxliException} with this code. The gateway may ignore it for what it delivers while it
   *     closes. What is thrown here comes out of that call instead.
   */
  int onMessage(Connection connection, Listener listener, Message message);
}
