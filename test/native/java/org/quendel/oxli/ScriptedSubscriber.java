package org.quendel.oxli;

import org.quendel.oxli.messages.Message;

/** Passes each message to the C++ test that is running. */
final class ScriptedSubscriber implements ISubscriber {
  @Override
  public native int onMessage(Connection connection, Listener listener, Message message);
}
