"""Scripts as the XML that FileMaker's Script Workspace takes from the clipboard."""

from xml.sax.saxutils import escape, quoteattr

import filemaker_script


def calculation(text):
    return f"<Calculation><![CDATA[{text.replace(']]>', ']]]]><![CDATA[>')}]]></Calculation>"


def within(name, content):
    return f"<{name}>{content}</{name}>"


# FileMaker finds fields and layouts by their names. 0 would be one that is missing, a small number perhaps another one.
NUMBER = 32000


def field(text):
    table, _, name = text.partition("::")
    return f'<Field table={quoteattr(table)} id="{NUMBER}" name={quoteattr(name)}></Field>'


def layout(name):
    destination = '<LayoutDestination value="SelectedLayout"></LayoutDestination>'
    return f'{destination}<Layout id="{NUMBER}" name={quoteattr(name.strip(chr(34)))}></Layout>'


def on(name, state="True"):
    return f'<{name} state="{state}"></{name}>'


def variable(name, value):
    return within("Value", calculation(value)) + within("Repetition", calculation("1")) + within("Name", name)


def button(text="", commits="False"):
    return f'<Button CommitState="{commits}">{calculation(text) if text else ""}</Button>'


def dialog(title, message):
    """FileMaker writes all three buttons, those without a text too."""
    buttons = button('"OK"', "True") + button() + button()
    return within("Title", calculation(title)) + within("Message", calculation(message)) + within("Buttons", buttons)


def path_of(text):
    return within("UniversalPathList", escape(text))


def insert(_, __, target, url, *encoding):
    state = "True" if encoding else "False"
    return on("NoInteract") + on("DontEncodeURL", state) + on("SelectAll") + calculation(url) + field(target)


def imported(_, path):
    return on("NoInteract") + on("Restore", "False") + '<DataSourceType value="File"></DataSourceType>' + path_of(path)


def record(which, *exits):
    return on("NoInteract", "False") + (on("Exit") if exits else "") + f'<RowPageLocation value="{which}"></RowPageLocation>'


def called(_, name, parameter):
    return '<CurrentScript value="Pause"></CurrentScript>' + calculation(parameter) + within("Calculated", calculation(name))


# FileMaker's number of each step, and what its options become.
STEPS = {
    "#": (89, lambda text="": within("Text", escape(text))),
    "Commit Records/Requests": (75, lambda _: on("NoInteract")),
    "Delete All Records": (10, lambda _: on("NoInteract")),
    "Else": (69, None),
    "Else If": (125, calculation),
    "End If": (70, None),
    "End Loop": (73, None),
    "Enter Find Mode": (22, lambda _: on("Pause", "False") + on("Restore", "False")),
    "Exit Loop If": (72, calculation),
    "Exit Script": (103, calculation),
    "Export Field Contents": (132, lambda source, path: path_of(path) + field(source)),
    "Go to Layout": (6, layout),
    "Go to Record/Request/Page": (16, record),
    "If": (68, calculation),
    "Import Records": (35, imported),
    "Insert from URL": (160, insert),
    "Install Plug-In File": (157, field),
    "Loop": (71, None),
    "New Record/Request": (7, None),
    "Pause/Resume Script": (62, lambda seconds: '<PauseTime value="ForDuration"></PauseTime>' + calculation(seconds)),
    "Perform Find": (28, lambda _="": on("Restore", "False")),
    "Perform Script": (1, called),
    "Revert Record/Request": (51, lambda _: on("NoInteract")),
    "Set Error Capture": (86, lambda _: on("Set")),
    "Set Field": (76, lambda target, value: calculation(value) + field(target)),
    "Set Variable": (141, variable),
    "Show All Records": (23, None),
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
