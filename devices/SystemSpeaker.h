// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Plays tone sequences on the PC speaker.
class CSystemSpeaker {
public:
    /// The body of the beeper thread: plays the tones pass by pass until the stop event is signalled or the passes are
    /// over. A tone that has begun plays to its end; the event is looked at between tones and ends every pause.
    ///
    /// A tone of 0 Hz is left out, which is traced; its pause is kept. A pass that neither plays a tone nor waits would
    /// repeat as fast as the processor can, so it is the last one.
    /// @param parameter  a SpeakerBlock, which the thread takes over; null ends the thread at once
    /// @return null always
    static void* RunAsThread_BeeperThread(void* parameter);
};
