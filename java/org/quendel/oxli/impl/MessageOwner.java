package org.quendel.oxli.impl;

import org.quendel.oxli.messages.Message;

/** The publisher of an outgoing message: serialises what uses the message's record. */
public interface MessageOwner {
  /** Releases the record; does nothing if that has happened. */
  void dispose(Message message);

  /**
   * Returns the gateway's dump of the message, or null if the gateway gives none.
   *
   * @param argument the gateway's: the address of the scheme description
   * @throws IllegalStateException if the message is closed or the gateway must not read it
   */
  byte[] dump(Message message, long argument);
}
