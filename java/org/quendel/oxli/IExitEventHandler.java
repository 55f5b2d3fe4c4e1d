package org.quendel.oxli;

/** Receives the gateway's exit event: its request to end the process. */
@FunctionalInterface
public interface IExitEventHandler {
  /**
   * Called on a thread of the gateway. What is thrown is written to the gateway's log and goes no
   * further. May close the environment. Opening one, setting an exit handler or parsing settings is a
   * task for a thread of the application: these wait for a thread that closes the environment, and
   * the gateway may make that thread wait for this method.
   */
  void onExitEvent();
}
