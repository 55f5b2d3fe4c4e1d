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
   *       {@link Connection#process}. The connection's delivery lock is locked.
   *   <li><b>Message:</b> only this thread may use it, until this method returns: the object is used
   *       again for the next message of its kind, and the gateway frees the payload. Pass a {@link
   *       Message#copy} to other threads, and keep a copy. Buffers taken from the message must not be
   *       used after that, which they cannot know.
   *   <li><b>Allowed calls:</b> all on the connection, its listeners and publishers, closing them
   *       included, and all that do not wait for a closing environment. Closing the environment is
   *       refused. A call from here that delivers messages ends the life of this message if it
   *       delivers one of the same kind.
   * </ul>
   *
   * <p>What can deadlock, because the delivery lock of this connection stays locked until this method
   * returns:
   *
   * <ul>
   *   <li>Waiting for another thread that opens, shuts, closes or processes this connection or one of
   *       its listeners: that thread waits for the delivery lock.
   *   <li>Opening, shutting, closing or processing another connection while a thread inside {@code
   *       onMessage} of that one does the same to this connection: each waits for the other's
   *       delivery lock. The environment's close counts, because it closes all connections.
   *   <li>Waiting for another thread, whatever it does with connections and listeners, if this method
   *       is inside a call that makes, opens, shuts or closes one of them: such calls of the whole
   *       process run one at a time, so that thread may wait for this call.
   *   <li>Waiting for a thread that posts or closes a publisher, from inside a post of the same
   *       publisher: each publisher has a lock of its own.
   * </ul>
   *
   * @return 0 to go on; anything else ends the call that delivers, which throws an {@link
   *     OxliException} with this code. The gateway may ignore it for what it delivers while it closes.
   *     What is thrown here comes out of that call instead.
   */
  int onMessage(Connection connection, Listener listener, Message message);
}
