package org.quendel.oxli;

import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import org.quendel.oxli.impl.OxliImpl;
import org.quendel.oxli.impl.Results;

/**
 * Receives the exit event from native code and passes it to the application's handler.
 *
 * <p>Native code does not synchronise a registration with an event that is being delivered.
 * Therefore this object is registered once for each environment, when the first handler is set. It
 * is unregistered after the gateway has closed the environment: the gateway raises no event then.
 */
final class ExitEvents implements IExitEventHandler {
  private static final ExitEvents INSTANCE = new ExitEvents();

  private final Set<Thread> delivering = ConcurrentHashMap.newKeySet();
  private volatile IExitEventHandler handler;
  private boolean isRegistered;

  private ExitEvents() {}

  /**
   * Sets the handler; null removes it.
   *
   * <p>REQUIRES: the caller serialises the calls of this method and of {@link #unregister}.
   */
  static void setHandler(IExitEventHandler newHandler) {
    INSTANCE.handler = newHandler;
    if (INSTANCE.isRegistered) return;
    final int code = OxliImpl.env_register_exithandler(INSTANCE);
    INSTANCE.isRegistered = code == ResultCode.OK;
    if (!INSTANCE.isRegistered) {
      INSTANCE.handler = null;
      throw Results.failure("Environment.onExit", "exit handler", code);
    }
  }

  /** Removes the handler, and unregisters this object in native code. */
  static void unregister() {
    INSTANCE.handler = null;
    if (!INSTANCE.isRegistered) return;
    INSTANCE.isRegistered = false;
    Results.check("Environment.close", "exit handler", OxliImpl.env_register_exithandler(null));
  }

  /** Returns whether the calling thread is inside the application's handler. */
  static boolean isCaller() {
    return INSTANCE.delivering.contains(Thread.currentThread());
  }

  @Override
  public void onExitEvent() {
    final IExitEventHandler current = handler;
    if (current == null) return;
    delivering.add(Thread.currentThread());
    try {
      current.onExitEvent();
    } catch (Throwable e) {
      // Caught, because it would stay pending on a thread of the gateway. Only its class is logged,
      // because the application may have overridden its methods with ones that throw.
      OxliImpl.log_errorstr("exit event handler threw " + e.getClass().getName());
    } finally {
      delivering.remove(Thread.currentThread());
    }
  }
}
