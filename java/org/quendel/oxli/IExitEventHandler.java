package org.quendel.oxli;

/** Receives the gateway's exit event: its request to end the process. */
@FunctionalInterface
public interface IExitEventHandler {
  /**
   * Called on a thread of the gateway. What is thrown is written to the gateway's log and goes no
   * further. May close the environment. Must not open one, set an exit handler or parse settings:
   * these calls wait for a thread that closes the environment, which may wait for this method. Pass
   * such work to a thread of the application.
   */
  void onExitEvent();
}
