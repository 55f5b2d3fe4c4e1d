package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Takes every message and does nothing with it. */
final class SilentSubscriber implements ISubscriber {
  @Override
  public int onMessage(Connection connection, Listener listener, Message message) {
    return 0;
  }
}
