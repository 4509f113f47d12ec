#!/usr/bin/python3
"""Stands for each module of ansible.windows that the role uses: tests/ansible/run does what it is asked to."""
import json
import os
import socket

from ansible.module_utils.basic import AnsibleModule

WORDS = ("src", "dest", "path", "state", "cmd", "output_encoding_override")
module = AnsibleModule({word: {"type": "str"} for word in WORDS}, supports_check_mode=True)
with socket.create_connection(("127.0.0.1", int(os.environ["STANDIN"]))) as line:
    words = f"{module._name.rsplit('.', 1)[-1]}\n{os.environ['WORKSTATION']}\0"
    line.sendall(words.encode("utf-16-le") + json.dumps({"check": module.check_mode, **module.params}).encode())
    line.shutdown(socket.SHUT_WR)
    module.exit_json(**json.loads(line.makefile().read().partition("\n")[2]))
