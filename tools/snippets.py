"""Scripts as the XML that FileMaker's Script Workspace takes from the clipboard."""

from xml.sax.saxutils import escape, quoteattr

import filemaker_script


def calculation(text):
    return f"<Calculation><![CDATA[{text.replace(']]>', ']]]]><![CDATA[>')}]]></Calculation>"


def within(name, content):
    return f"<{name}>{content}</{name}>"


def field(text):
    table, _, name = text.partition("::")
    return f"<Field table={quoteattr(table)} id=\"0\" name={quoteattr(name)}></Field>"


def on(name, state="True"):
    return f'<{name} state="{state}"></{name}>'


def variable(name, value):
    return within("Value", calculation(value)) + within("Repetition", calculation("1")) + within("Name", name)


def dialog(title, message):
    button = within("Button", calculation('"OK"')).replace("<Button>", '<Button CommitState="True">', 1)
    return within("Title", calculation(title)) + within("Message", calculation(message)) + within("Buttons", button)


def path_of(text):
    return within("UniversalPathList", escape(text))


# FileMaker's number of each step, and what its options become.
STEPS = {
    "#": (89, lambda text="": within("Text", escape(text))),
    "Commit Records/Requests": (75, lambda _: on("NoInteract")),
    "Delete Record/Request": (9, lambda _: on("NoInteract")),
    "Else": (69, None),
    "Else If": (125, calculation),
    "End If": (70, None),
    "End Loop": (73, None),
    "Exit Loop If": (72, calculation),
    "Exit Script": (103, calculation),
    "Export Field Contents": (132, lambda source, path: path_of(path) + field(source)),
    "If": (68, calculation),
    "Import Records": (35, lambda _, path: on("NoInteract") + path_of(path)),
    "Insert from URL": (160, lambda _, __, target, url: on("NoInteract") + on("SelectAll") + calculation(url) + field(target)),
    "Install Plug-In File": (157, field),
    "Loop": (71, None),
    "New Record/Request": (7, None),
    "Pause/Resume Script": (62, lambda seconds: '<PauseTime value="ForDuration"></PauseTime>' + calculation(seconds)),
    "Set Error Capture": (86, lambda _: on("Set")),
    "Set Field": (76, lambda target, value: calculation(value) + field(target)),
    "Set Variable": (141, variable),
    "Show Custom Dialog": (87, dialog),
}


def element(step):
    number, content = STEPS[step.name]
    name = "# (comment)" if step.name == "#" else step.name
    inside = content(*step.options) if content else ""
    return f'<Step enable="True" id="{number}" name={quoteattr(name)}>{inside}</Step>\n'


def snippet(script):
    steps = "".join(map(element, filemaker_script.parse(script)))
    return f'<?xml version="1.0" encoding="UTF-8"?>\n<fmxmlsnippet type="FMObjectList">\n{steps}</fmxmlsnippet>\n'
