package org.quendel.oxli;

/** Receives the gateway's exit event: its request to end the process. */
@FunctionalInterface
public interface IExitEventHandler {
  /**
   * Called on a thread of the gateway. If this method throws, the class of the exception is written
   * to the gateway's log, and the exception is discarded. The method may close the environment. It
   * must not open an environment, set an exit handler or parse settings: these calls wait for a
   * thread that is closing the environment, and that thread may wait for this method. Make such
   * calls on a thread of the application.
   */
  void onExitEvent();
}
