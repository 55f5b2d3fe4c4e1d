/** Internal: the native that calls no function of the gateway. Applications do not use it. */
package org.quendel.oxli.ex.impl;
