"""The documents (Markdown) as HTML pages that lead to each other: by cmark-gfm, which reads Markdown as GitHub does."""
import os
import pathlib
import re
import subprocess

PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>{title}</title>
<style>
body {{ font-family: sans-serif; line-height: 1.45; max-width: 60em; margin: 2em auto; padding: 0 1em; }}
code, pre {{ font-family: monospace; background: #f3f3f3; }}
pre {{ padding: 0.6em; overflow-x: auto; }}
table {{ border-collapse: collapse; }}
th, td {{ border: 1px solid #bbb; padding: 0.3em 0.6em; text-align: left; vertical-align: top; }}
img {{ max-width: 100%; }}
</style>
</head>
<body>
{body}</body>
</html>
"""


def heading_ids(body):
    """Headings get the names by which links on GitHub call them."""
    used = {}

    def with_id(match):
        text = re.sub(r"<[^>]*>|&[a-z]+;", "", match[2]).strip().lower()
        name = re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
        used[name] = used.get(name, -1) + 1
        return f'<h{match[1]} id="{name}{f"-{used[name]}" if used[name] else ""}">{match[2]}</h{match[1]}>'
    return re.sub(r"<h([1-6])>(.*?)</h\1>", with_id, body, flags=re.DOTALL)


class Documents:
    """The documents of the tree `top`: `*.md` there and in these folders of it."""

    def __init__(self, top, folders):
        self.top = pathlib.Path(top)
        found = [*self.top.glob("*.md"), *(path for folder in folders for path in self.top.glob(f"{folder}/**/*.md"))]
        self.names = sorted(path.relative_to(self.top).as_posix() for path in found)

    def page(self, name, shipped):
        """The document as a page. Links lead to pages and to what else is `shipped`; others become plain text."""
        source = (self.top / name).read_bytes()
        body = subprocess.run(["cmark-gfm", "--unsafe", "-e", "table", "-e", "autolink", "-e", "strikethrough"],
                              input=source, capture_output=True, check=True).stdout.decode()
        body = re.sub(r'<a href="([^"]*)">(.*?)</a>', lambda match: self._link(name, match, shipped), body,
                      flags=re.DOTALL)
        body = re.sub(r'(<a [^>]*>)?<code>([^<> ]+\.md)</code>', lambda match: self._mention(name, match), body)
        title = re.search(r"<h1>(.*?)</h1>", body, re.DOTALL)
        return PAGE.format(title=re.sub("<[^>]*>", "", title[1]) if title else name, body=heading_ids(body))

    def _link(self, name, match, shipped):
        path, sharp, fragment = match[1].partition("#")
        if re.match(r"[a-z]+:", path) or not path:
            return match[0]
        target = os.path.normpath(os.path.join(os.path.dirname(name), path))
        if target in self.names:
            return f'<a href="{path[:-3]}.html{sharp}{fragment}">{match[2]}</a>'
        # What is not there at all stays a link, which the check of the packages finds.
        return match[0] if target in shipped or not (self.top / target).exists() else match[2]

    def _mention(self, name, match):
        """A document's path in the text leads to it, seen from the document or from the top."""
        if match[1]:
            return match[0]
        here = os.path.dirname(name)
        for target in (os.path.normpath(os.path.join(here, match[2])), match[2]):
            if target in self.names and target != name:
                return f'<a href="{os.path.relpath(target, here or ".")[:-3]}.html">{match[0]}</a>'
        return match[0]
