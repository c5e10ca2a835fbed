// One report, whole.

// The text, exactly, with what the search found marked and what cannot be seen made visible.
function makeText(text, sought) {
  const PIECES_MOST = 5000;  // an element each; a dump may be binary
  const search = sought && patternOf(sought).source;
  const pattern = new RegExp(`(${HIDDEN}+|\\r(?!\\n))${search && `|${search}`}`, "giu");
  const pre = make("pre", {tabIndex: 0});  // the keys scroll what does not fit
  let end = 0;
  for (const found of text.matchAll(pattern)) {
    if (pre.childNodes.length >= PIECES_MOST) {
      break;
    }
    pre.append(text.slice(end, found.index));
    end = found.index + found[0].length;
    if (found[1]) {
      const codes = [...found[0]].slice(0, 3).map(codeOf).join(" ");
      const hidden = make("span", {className: "hidden-text"}, found[0]);
      hidden.dataset.code = found[0].length > 3 ? `${codes}… ${found[0].length}` : codes;
      pre.append(hidden);
    } else {
      pre.append(make("mark", {}, found[0]));
    }
  }
  pre.append(text.slice(end));
  return pre;
}

// The places where it was found, folded if they are many.
function makePlaces(report) {
  const PLACES_SHOWN = 3;
  const count = columns.places_count[report.index], known = columns.places[report.index];
  const list = make("ul", {}, ...known.map(number => {
    const [file, member, damaged] = places[number];
    const place = member === null ? textOf(file) : `${textOf(file)} : ${textOf(member)}`;
    return make("li", {}, plain(place) + (damaged ? " (damaged)" : ""));
  }));
  if (known.length < count) {
    list.append(make("li", {className: "hint"}, `… and ${figureOf(count - known.length)} more, not in this page`));
  }
  return count > PLACES_SHOWN ? make("details", {}, make("summary", {}, counted(count, "place")), list) : list;
}

function makeDetail(report, sought) {
  const parts = [];
  const heading = text => parts.push(make("h3", {}, text));
  const warning = text => parts.push(make("p", {className: "warning"}, text));
  const warnOfCut = (name, size, most) => {
    if (size > most) {
      warning(`Of its ${figureOf(size)} bytes of ${name}, the first ${figureOf(most)} are in this page.`);
    }
  };
  if (report.cut) {
    warning("Its end, or a part of its head, is missing.");
  }
  if (report.damaged) {
    warning("It is known from damaged files only: what it says may be wrong.");
  }
  const content = contentOf(report), processes = textOf(columns.processes[report.index]);
  heading("Content");
  if (content === null) {
    warning("The content is not in this page.");
  } else {
    warnOfCut("content", report.bytes, contentMax);
    parts.push(Object.assign(makeText(content, sought), {id: "content"}));
  }
  const fields = [
    ["Phone", plain(report.phone)],
    ["Kind", report.kind],
    ["Date and time", whenOf(report)],
    ["Device", plain(report.device)],
    ["Error number", plain(`${report.error} ${report.failure.name}`)],
    ["Test switch", plain(report.test_switch ?? "not known")],
    ["Size", counted(report.bytes, "byte")],
    ["Found in", makePlaces(report)],
    ["Archive", plain(textOf(columns.archive[report.index]) ?? "none")],
  ].flatMap(([name, value]) => [make("dt", {}, name), make("dd", {}, value)]);
  heading("Report");
  parts.push(make("dl", {}, ...fields));
  const attachments = columns.attachments[report.index];
  if (attachments.length > 0) {
    heading(`Beside it in the archive (${attachments.length})`);
    parts.push(make("ul", {}, ...attachments.map(
      ([name, bytes]) => make("li", {}, `${plain(textOf(name))}, ${counted(bytes, "byte")}`))));
  }
  if (processes !== null) {
    heading("Processes");
    warnOfCut("the process list", columns.processes_bytes[report.index], processesMax);
    parts.push(Object.assign(makeText(processes, sought), {className: "columns"}));
  }
  return parts;
}
