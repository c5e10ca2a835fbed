// The files of the audio parts: those that the audio operations make, and those that the DSP and the codec
// leave. A list is separated by blanks.
#pragma once

#define CODEC_DUMP "/data/zc8830dump.log"

#define AUDIO_POLICY_LOG "/data/audio_policy.log"
#define AUDIO_FLINGER_LOG "/data/audio_flinger.log"
#define AUDIO_LOG "/data/audio.log"
#define MEDIA_PLAYER_LOG "/data/media_player.log"
#define MEDIA_DUMP "/data/mediadump.log"
#define MEDIA_FILES AUDIO_POLICY_LOG " " AUDIO_FLINGER_LOG " " AUDIO_LOG " " MEDIA_PLAYER_LOG " " MEDIA_DUMP

#define HIFI_LOG_DIR "/data/ruvo_logs/hifi_log"
#define CODEC_LOG_DIR "/data/ruvo_logs/zc8830_log"

// Those of the DSP and the codec whose place is known. Ends in a blank, as lists may.
#define RESET_FILES                                                                                      \
    HIFI_LOG_DIR "/hifi.log " HIFI_LOG_DIR "/hifi.bin " CODEC_LOG_DIR "/zc8830_ocram.bin " CODEC_LOG_DIR \
                 "/zc8830_reg.bin " CODEC_LOG_DIR "/zc8830_tcm.bin "
