// The audio dumps: what they run, pack and remove.
#include <pthread.h>
#include <unistd.h>

#include <future>
#include <tuple>

#include "clients/dispatch.h"
#include "clients/registry.h"
#include "tests/bring_up.h"
#include "tests/desk_calls.h"

TEST(Audio, FilesAreMadePackedAndRemoved) {
    ASSERT_EQ(0, dmd_client_init());
    ASSERT_EQ(0, chdir("/data"));
    // The shell's cat and rm are noted like the phone's own commands. What has no folder is looked for here.
    output_of(R"(cd /system/bin; echo '#!/bin/sh
        echo ${0##*/} $* >>/data/commands.log; /bin/${0##*/} $*' >cat; chmod +x cat; cp cat rm; cd /data
        mkdir -p ruvo_logs/hifi_log ruvo_logs/zc8830_log; touch hifi.log hifi.bin hifi3.bin hifi3_ocram.bin
        touch hifi3_tcm.bin zc8830_ocram.bin zc8830_reg.bin zc8830_tcm.bin; cp hifi.* ruvo_logs/hifi_log
        cp zc* ruvo_logs/zc8830_log)");
    const std::string take_commands = "touch commands.log; sed '/^top/d' commands.log; /bin/rm commands.log";
    // The last match in the order of a directory is the one that counts.
    const auto last = [](const std::string& names, const std::string& directory, const std::string& form) {
        return output_of("printf %s \"$(ls -U " + directory + " | sed -nE 's,^(" + names + ")$," + form +
                         ",p' | tail -n 1)\"");
    };
    const auto each = [](const std::string& form, const std::string& words) {
        return words.empty() ? "" : output_of("printf '" + form + "' " + words);
    };
    const std::string codec = "/data/zc8830dump.log ", read_codec = "cat /sys/kernel/debug/zc8830/rh\n";
    const auto media = each("/data/%s.log ", "audio_policy audio_flinger audio media_player mediadump");
    const std::string fixed = each("/data/ruvo_logs/hifi_log/hifi.%s ", "log bin") +
                              each("/data/ruvo_logs/zc8830_log/zc8830_%s.bin ", "ocram reg tcm");
    // No folders and the phone's media server; folders and no server; long names and two servers.
    const std::string folders = R"(; mkdir -p memorydump; for d in hifi_log memorydump; do /bin/rm -rf $d/*/
        for n in "a $l" $(printf x%0130d) 0$l b$l c$l "d $l" 9$l; do mkdir "$d/$n"; cp ../hifi* "$d/$n"
        cp ../zc*.bin "$d/$n"; done; /bin/rm $d/[09]*/*; done
        cd /proc; /bin/rm -rf $(grep -ls '^Name:.mediaserver$' */status | cut -d/ -f1))";
    const std::string longest = "l=" + std::string(45, 'l') + folders + R"(
        for p in 0 1 2 3; do mkdir 424$p; echo Name: mediaserver >424$p/status; done
        echo Name: mediaserverd >4240/status; printf 'Name:\n mediaserver' >4241/status)";
    // Last in a row: commands that make files; files removed; files packed where there is a report; seconds.
    using Text = std::string;
    using Row = std::tuple<Text, int, Text, Text, Text, Text, unsigned int>;
    for (const Text& setup : {Text(":"), "l=" + folders, longest}) {
        output_of("cd ruvo_logs; " + setup);
        const auto dumps = last("[bc].*", "ruvo_logs/memorydump", "/data/ruvo_logs/memorydump/&/");
        const auto logs = last("[bc].*", "ruvo_logs/hifi_log", "/data/ruvo_logs/hifi_log/&/");
        const auto images = each(dumps + "hifi3%s.bin ", "'' _ocram _tcm") + logs + "hifi.log ";
        const auto codec_images = each(dumps + "zc8830_%s.bin ", "reg ocram tcm") + fixed;
        const auto services =
            each("dumpsys %s\\n", "media.audio_policy media.audio_flinger audio media.player") +
            output_of(
                "cd /proc; printf 'debuggerd -b'; for p in $(ls -U); do grep -qs '^Name:.mediaserver$' "
                "$p/status && echo \" $p\"; done | tail -n 1 | tr -d '\\n'; echo");
        for (const auto& [name, slot, operation, made, removed, packed, seconds] :
             {Row("dsm_audio", 0, "codec_dump_error", read_codec, "", "", 0),
              Row("dsm_audio", 1, "hifi_force_dump_error", "cat /proc/hifidebug/dspdumplog\n", "", "", 0),
              Row("dsm_audio", 2, "media_dump_error", services, "", "", 0),
              Row("dsm_audio", 5, "soc_hifi_reset_dump_error", "", "", images, 10),
              Row("dsm_audio", 6, "codec_hifi_reset_dump_error", "", "", codec_images, 5),
              Row("dsm_audio", 4, "audio_dump_error", "", codec + media,
                  logs + "hifi.log " + codec + media + fixed, 5),
              Row("dsm_anc_hs", 0, "maxim_smartpa_dump_error", read_codec, codec, codec, 0),
              Row("dsm_maxim_smartpa", 1, "maxim_smartpa_dump_error", read_codec, codec, codec, 0)}) {
            SCOPED_TRACE(operation + setup);
            dmd_client* const client = get_client_by_name(name.c_str());
            const unsigned int slept = seconds_slept();
            const LogCapture log;
            set_commercial(false);
            report_error(name, 7, "text");
            EXPECT_EQ(0, dmd_dump_error(client, 7, slot, "on"));
            EXPECT_EQ(made + each("rm %s\\n", removed), output_of(take_commands));
            const unsigned int left_alone = setup == ":" ? 0 : seconds / 5 * 3;  // three at each search
            EXPECT_EQ(left_alone, static_cast<unsigned int>(log.count("] leave /data/ruvo_logs/")));
            const std::vector<Text> messages = messages_of("dmd_direct_output", log);
            EXPECT_EQ(setup == longest && (slot == 4 || slot == 6), messages.size() == 2);
            // What has no room in the command of 767 characters is left out whole.
            const Text rest = messages.size() > 1 ? messages[0].substr(messages[0].find('/')) : "";
            EXPECT_TRUE(rest.empty() || messages[1].size() - 13 + rest.find(' ') >= 767);
            const Text list = "cd kvdx_logs/dmd_log; (tar -tzf *.gz; /bin/rm *.gz; echo " + rest +
                              ") | sed 's,^data,/data,'";
            EXPECT_TRUE(packed.empty() || RECORD + (" " + packed) == output_of(list + " | tr -s '\n ' ' '"))
                << packed;
            // Nothing pending on a commercial build, and an argument that is none.
            phone_do({"reset"});
            set_commercial(true);
            EXPECT_EQ(0, dmd_dump_error(client, 7, slot, "on"));
            EXPECT_EQ(packed.empty() ? 0 : -1, client->dump[slot](client, 7, nullptr));
            EXPECT_EQ(packed.empty() ? 1U : 3U, messages_of(operation, log).size());
            EXPECT_EQ(each("rm %s\\n", removed), output_of(take_commands));
            EXPECT_EQ(seconds, seconds_slept() - slept);
        }
    }
}

TEST(Audio, ImagesAreWaitedForUnderTheClientsLock) {
    set_commercial(false);
    ASSERT_EQ(0, dmd_client_init());
    dmd_client* const audio = get_client_by_name("dsm_audio");
    report_error("dsm_audio", 7, "text");
    hold_sleeps();
    auto dump = std::async(std::launch::async, dmd_dump_error, audio, 7, 6, "on");
    EXPECT_TRUE(wait_until([] { return seconds_slept() == 5; }));
    EXPECT_NE(0, pthread_mutex_trylock(&audio->mutex.handle));
    output_of("mkdir -p /data/ruvo_logs/memorydump/a; touch /data/ruvo_logs/memorydump/a/zc8830_reg.bin");
    let_a_sleep_pass();
    EXPECT_EQ(0, dump.get());
    EXPECT_EQ("data/ruvo_logs/memorydump/a/zc8830_reg.bin\n",
              output_of("tar -tzf /data/kvdx_logs/dmd_log/*.gz | grep memorydump"));
}
