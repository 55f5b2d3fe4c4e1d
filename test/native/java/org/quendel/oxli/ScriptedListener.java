package org.quendel.oxli;

/** A listener whose scheme is what the C++ test says. */
final class ScriptedListener extends Listener {
  ScriptedListener() {
    super(0L);
  }

  @Override
  public native Scheme getScheme();
}
