package org.quendel.oxli.impl;

import org.quendel.oxli.messages.Message;

/** The publisher of an outgoing message. It serialises the calls that use the message's record. */
public interface MessageOwner {
  /** Releases the record of a message. Does nothing if it is released. */
  void dispose(Message message);

  /**
   * Returns the gateway's dump of the message, or null if the gateway fails.
   *
   * @param schemeRef the address of the gateway's scheme description
   * @throws IllegalStateException if the message is closed or the gateway must not read it
   */
  byte[] dump(Message message, long schemeRef);
}
