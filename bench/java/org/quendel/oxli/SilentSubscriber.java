package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Ignores every message. */
final class SilentSubscriber implements ISubscriber {
  @Override
  public int onMessage(Connection connection, Listener listener, Message message) {
    return 0;
  }
}
