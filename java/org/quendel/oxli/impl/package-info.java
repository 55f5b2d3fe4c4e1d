/**
 * The boundary to the native library. Public only because several packages of this library and its
 * native code meet here; applications use {@link org.quendel.oxli}.
 */
package org.quendel.oxli.impl;
