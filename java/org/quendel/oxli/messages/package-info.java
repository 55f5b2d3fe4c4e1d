/** The messages that listeners receive and publishers send. */
package org.quendel.oxli.messages;
