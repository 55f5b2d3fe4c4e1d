package org.quendel.oxli;

import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * What native code calls on the exit event. Registered once in a process, because replacing a
 * registration is not guarded against an event that is being delivered.
 */
final class ExitEvents implements IExitEventHandler {
  private static final ExitEvents INSTANCE = new ExitEvents();

  private boolean registered;
  private volatile IExitEventHandler handler;

  private ExitEvents() {}

  static void handleWith(IExitEventHandler handler) {
    INSTANCE.register();
    INSTANCE.handler = handler;
  }

  static void handleNoMore() {
    INSTANCE.handler = null;
  }

  private synchronized void register() {
    if (registered) return;
    Results.check("Environment.onExit", OxliImpl.env_register_exithandler(this));
    registered = true;
  }

  @Override
  public void onExitEvent() {
    final IExitEventHandler current = handler;
    if (current == null) return;
    try {
      current.onExitEvent();
    } catch (Throwable e) {
      // An exception would stay pending on a thread of the gateway's. Its class alone is named: any
      // method of the exception may be the application's and throw again.
      OxliImpl.log_errorstr("exit event handler threw " + e.getClass().getName());
    }
  }
}
