#!/usr/bin/python3 -SE
"""Stands in for the keepwell command: as LIES in its folder has it, it claims to
have done an operation without asking the agent, or reports the opposite of the
agent's answer. It passes all other requests on."""
import json
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.realpath(__file__))
KEEPWELL = f"{HERE}/keepwell"  # a link to the command itself

# The words of the command for each operation.
WORDS = {
    "PleaseTerminate": ["terminate"], "Echo": ["echo"], "FileExistsAtPath": ["exists"],
    "MoveItemAtPath": ["move"], "RemoveItemAtPath": ["remove"],
    "SecurelyRemoveItemAtPath": ["shred"], "MoveToTrashItemAtPath": ["trash"],
    "TruncateFileAtPath": ["truncate"], "RemovePackageWithID": ["package", "forget"],
    "RemoveKextAtPath": ["kext", "remove"], "RemoveASL": ["maintenance", "erase-asl"],
    "SlimBinaryWithPath": ["slim"], "RemoveLaunchdAgentAtPath": ["launchd", "remove"],
    "EnableLaunchdAgentAtPath": ["launchd", "enable"],
    "DisableLaunchdAgentAtPath": ["launchd", "disable"],
    "RemoveSMLoginItem": ["login-item", "remove-sm"],
    "StartStartupItem": ["startup", "start"], "StopStartupItem": ["startup", "stop"],
    "RepairPermissions": ["maintenance", "repair-permissions"],
    "RunPeriodicScript": ["maintenance", "periodic"],
    "StartSpotlightReindex": ["maintenance", "reindex-spotlight"],
    "RemoveGlobalLoginItemForAppWithPath": ["login-item", "remove-global"],
    "RemoveLibraryFromLauchdConf": ["launchd-conf", "remove-library"],
    "FlushDNS": ["maintenance", "flush-dns"],
    "RemoveDiagnosticLogs": ["maintenance", "erase-unified-log"], "SizeOfItemAtPath": ["size"],
}

# The texts for people with which it claims to have done them.
TEXTS = {
    "terminate": "The agent has ended.", "move": "Moved {} to {}", "remove": "Removed {}",
    "shred": "Shredded {}", "trash": "Moved {} to the Trash of the agent's user",
    "truncate": "Truncated {}", "forget": "Forgot {}", "erase-asl": "Erased the system log store",
    "slim": "Slimmed {}", "enable": "Enabled {}", "disable": "Disabled {}",
    "periodic": "Ran the periodic scripts {}",
    "remove-global": "No login item of all users starts {}",
    "remove-sm": "No login item is registered as {}",
    "remove-library": "No longer inserted into programs: {}",
}


def claim(words, arguments, is_json):
    """Says that it is done, and does nothing."""
    if not is_json:
        print(TEXTS[words[-1]].format(*arguments, *[""] * 2))
    for each in arguments or [""] if is_json else []:
        print(json.dumps({"command": " ".join(words), "path": each, "success": True}))
    return 0


def deny(argv):
    """Reports the opposite; of a size, another one; of a text, another one."""
    done = subprocess.run([KEEPWELL, *argv], check=False, stdout=subprocess.PIPE)
    if "--json" not in argv:
        print("It is not so.")
        return 1 - done.returncode
    for line in done.stdout.decode().splitlines():
        each = json.loads(line)
        if "progress" in each:
            continue
        if "bytes" in each:
            each["bytes"] += 512
        elif "text" in each:
            each["text"] += "!"
        elif each["success"]:
            each.update(success=False, error={"kind": "failed", "description": "a lie"})
        else:
            del each["error"]
            each["success"] = True
        print(json.dumps(each))
    is_flag = "size" not in argv and "echo" not in argv
    return 1 - done.returncode if is_flag and done.returncode < 2 else done.returncode


def main():
    argv = sys.argv[1:]
    plain = [word for word in argv if word not in ("--json", "--yes", "--")]
    with open(f"{HERE}/LIES", encoding="utf-8") as file:
        lies = json.load(file)
    for operation, kind in lies.items():
        words = WORDS[operation]
        if plain[:len(words)] == words and not {"-n", "--dry-run", "-0"} & set(argv):
            if kind == "claims":
                return claim(words, plain[len(words):], "--json" in argv)
            return deny(argv)
    os.execv(KEEPWELL, [KEEPWELL, *argv])


sys.exit(main())
