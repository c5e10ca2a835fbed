#!/usr/bin/python3
"""Holds Android.bp and Android.mk against each other, CMakeLists.txt and the folders: build_files.py, in the root.

Android.bp is read with mini-soong's parser, Android.mk by GNU make with the stand-ins of make/.
"""
import glob
import re
import subprocess
import sys

from mini_soong.parser import soong

EXCEPTION_LOG = 'platform/android/exception_log.cpp'
OPTIONAL = '        // "%s",' % EXCEPTION_LOG
failures = 0


def same(what, found, expected):
    global failures
    if found != expected:
        failures += 1
        print('build_files: %s: %r instead of %r' % (what, found, expected))


def read_soong(text):
    return {module.arguments['name']: module.arguments for module in soong.parseString(text, parseAll=True)}


def read_make(release, *settings):
    done = subprocess.run(['make', '-s', '-f', 'tests/platform/make/platform.mk', 'FILE=Android.mk',
                           'PLATFORM_SDK_VERSION=%d' % release, *settings], capture_output=True, text=True)
    if done.returncode != 0 or done.stderr:
        sys.exit('build_files: Android.mk: ' + done.stderr)
    modules, module = {}, {}
    for line in done.stdout.splitlines():
        name, *values = line.split()
        module[name[len('LOCAL_'):]] = values
        if name == 'LOCAL_END':
            modules[module['MODULE'][0]] = module
            module = {}
    return modules


def files(patterns):
    found = [sorted(glob.glob(pattern)) for pattern in patterns]
    same('patterns that name no file', [p for p, names in zip(patterns, found) if not names], [])
    return sorted(sum(found, []))


bp_text = open('Android.bp').read()
bp = read_soong(bp_text)
mk = read_make(22)
common = bp['dmd_defaults']
program, made = bp['dmd'], mk['dmd']
CHECK = 'dmd-driver-check'

# A platform tree builds what CMake builds.
folders = re.search(r'^set\(folders (.*)\)', open('CMakeLists.txt').read(), re.M).group(1).split()
sources = files(program['srcs'])
check_sources = files(bp[CHECK]['srcs'])
same('folders of Android.bp', program['srcs'], [folder + '/*.cpp' for folder in folders])
same('folders of the check', bp[CHECK]['srcs'], ['driver_check/*.cpp'] + program['srcs'])
same('what the check leaves out', bp[CHECK]['exclude_srcs'], ['daemon/main.cpp'])
check_sources.remove('daemon/main.cpp')
same('sources of Android.mk', sorted(made['SRC_FILES']), sources)
same('sources of the check in Android.mk', sorted(mk[CHECK]['SRC_FILES']), check_sources)
for name in ('dmd', CHECK):
    same('defaults of ' + name, bp[name]['defaults'], ['dmd_defaults'])
    same('flags of Android.mk for ' + name, sorted(mk[name]['CFLAGS'] + mk[name]['CPPFLAGS']),
         sorted(common['cflags'] + ['-std=' + common['cpp_std'], '-fno-exceptions', '-fno-rtti']))
    same('folders of headers of Android.mk for ' + name, mk[name]['C_INCLUDES'], common['local_include_dirs'])
    same('libraries of Android.mk for ' + name, sorted(mk[name]['SHARED_LIBRARIES']), sorted(common['shared_libs']))
    same('width of Android.mk for ' + name, mk[name]['MULTILIB'], [common['compile_multilib']])

same('configuration of Android.mk', mk['device_state_monitor.conf']['SRC_FILES'], [bp['device_state_monitor.conf']['src']])
files(program['init_rc'] + [bp['device_state_monitor.conf']['src']] + mk['init.dmd.rc']['SRC_FILES'])
same('modules that dmd requires', program['required'], ['device_state_monitor.conf'])
same('modules that dmd requires in Android.mk', made['REQUIRED_MODULES'], [name for name in mk if name not in ('dmd', CHECK)])

# What a tree may choose.
with_log = read_soong(bp_text.replace(OPTIONAL, OPTIONAL.replace('// ', '')))
same('the exception log in Android.bp', files(with_log['dmd']['srcs']), sorted(sources + [EXCEPTION_LOG]))
same('the exception log of the check in Android.bp', EXCEPTION_LOG in with_log[CHECK]['srcs'], True)
chosen = read_make(22, 'DMD_NO_EXCEPTION_LOG=true', 'DMD_CXX=CXX', 'DMD_CXX_INCLUDE=INCLUDE', 'DMD_CXX_LIBRARIES=A B')
same('the exception log in Android.mk', sorted(chosen['dmd']['SRC_FILES']), sorted(sources + [EXCEPTION_LOG]))
same('the exception log of the check in Android.mk', EXCEPTION_LOG in chosen[CHECK]['SRC_FILES'], True)
same("the product's own compiler", [chosen['dmd'][name] for name in ('CXX', 'CXX_STL', 'LDFLAGS')] +
     [chosen['dmd']['CPPFLAGS'][-3:]], [['CXX'], ['none'], ['A', 'B', 'LIBGCC'], ['-nostdinc++', '-isystem', 'INCLUDE']])
same('modules of Android.mk from Android 9 on', read_make(28), {})

sys.exit(failures != 0)
