package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Receives the messages of a {@link Listener}. */
@FunctionalInterface
public interface ISubscriber {
  /**
   * Called for each message.
   *
   * <ul>
   *   <li><b>Thread:</b> This method is called on the thread that is inside a call on the listener
   *       or its connection, usually {@link Connection#process}. This thread has locked the
   *       delivery lock of the connection.
   *   <li><b>Message:</b> Only this thread may use the message, and only until this method returns.
   *       After that, the object is used for the next message of its kind, and the gateway frees
   *       the payload. To use a message later or on another thread, make a {@link Message#copy}.
   *       Do not use a buffer of the message after this method has returned: nothing detects that.
   *   <li><b>Allowed calls:</b> Every call is allowed, also closing the connection, its listeners
   *       and its publishers, except that {@link Environment#close} throws {@link
   *       IllegalStateException}. If a call made here delivers a message of the same kind to the
   *       same listener, the methods of this message throw {@link IllegalStateException} after that
   *       call.
   * </ul>
   *
   * <p>The delivery lock of the connection stays locked until this method returns. Therefore each
   * of the following can deadlock:
   *
   * <ul>
   *   <li>Waiting for another thread that opens, shuts, closes or processes this connection, or
   *       that opens, shuts or closes one of its listeners: that thread waits for the delivery
   *       lock.
   *   <li>Opening, shutting, closing or processing another connection while a thread inside {@code
   *       onMessage} of that connection does the same to this connection: each thread waits for the
   *       delivery lock that the other one has locked. The same applies to a thread that closes the
   *       environment, because this closes all connections.
   *   <li>Waiting for any other thread, also by calls on another connection, if this method was
   *       called during a call that makes, opens, shuts or closes a connection or listener: one
   *       such call runs at a time in the whole process, so the other thread may wait for this one.
   *   <li>Waiting, inside a post on a publisher, for another thread that uses this publisher: the
   *       post has locked the lock of the publisher.
   * </ul>
   *
   * @return 0 to continue. Any other code ends the call that delivers; that call throws an {@link
   *     OxliException} with the code. The gateway may ignore the code for messages that it delivers
   *     while it closes. An exception of this method is thrown by the call that delivers.
   */
  int onMessage(Connection connection, Listener listener, Message message);
}
