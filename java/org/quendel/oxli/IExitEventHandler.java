package org.quendel.oxli;

/** Receives the gateway's request to end the process. */
@FunctionalInterface
public interface IExitEventHandler {
  /**
   * Called on a thread of the gateway's. What is thrown goes to the gateway's log and no further.
   * Hand the work to a thread of your own: opening or closing an environment, setting an exit handler
   * or parsing settings from here can wait for itself.
   */
  void onExitEvent();
}
