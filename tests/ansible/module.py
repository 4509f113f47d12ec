#!/usr/bin/python3
"""Stands for every module of ansible.windows that the role uses: hands its name and arguments to tests/ansible/run, which
does what is asked to this host's workstation, and gives its answer back."""
import json
import os
import socket

from ansible.module_utils.basic import AnsibleModule

WORDS = ("src", "dest", "path", "state", "cmd", "output_encoding_override")


def main():
    module = AnsibleModule({word: {"type": "str"} for word in WORDS}, supports_check_mode=True)
    request = {"check": module.check_mode, **{word: module.params[word] for word in WORDS}}
    with socket.create_connection(("127.0.0.1", int(os.environ["STANDIN"]))) as line:
        name = module._name.rsplit(".", 1)[-1]
        line.sendall(f"\\{name}\n{os.environ['WORKSTATION']}\0".encode("utf-16-le") + json.dumps(request).encode())
        line.shutdown(socket.SHUT_WR)
        module.exit_json(**json.loads(line.makefile().read().partition("\n")[2]))


if __name__ == "__main__":
    main()
