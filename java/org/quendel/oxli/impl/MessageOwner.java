package org.quendel.oxli.impl;

import org.quendel.oxli.messages.Message;

/** The publisher of an outgoing message: it serialises what touches the message's record. */
public interface MessageOwner {
  /** Gives the record back; harmless when that has happened. */
  void dispose(Message message);

  /**
   * Renders the record, null when the gateway gave nothing.
   *
   * @throws IllegalStateException when the message has been closed
   */
  byte[] dump(Message message, long argument);
}
