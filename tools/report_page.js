// The page of dmd-report --html: filters, tables and the chosen report, and their state in the address.

const byId = id => document.getElementById(id);

// Characters that cannot be seen, or that turn the text around them round.
const HIDDEN = "[\\0-\\x08\\x0b\\x0c\\x0e-\\x1f\\x7f-\\x9f\\xad\\u061c\\u200b-\\u200f\\u2028-\\u202e\\u2060-\\u206f" +
  "\\ufeff\\ufff9-\\ufffb]";
const codeOf = character => `U+${character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;

// The text for one line, whatever it holds.
function plain(text) {
  return text.replace(/[\t\r\n]+/g, " ").replace(new RegExp(HIDDEN, "gu"), character => `<${codeOf(character)}>`);
}

// A new element. Texts only ever become text nodes.
function make(name, properties = {}, ...children) {
  const node = Object.assign(document.createElement(name), properties);
  node.append(...children);
  return node;
}

// ---- The document

const UNKNOWN_DEVICE = "(not known)";  // a dump has no head that would tell
const {reports, problems = []} = JSON.parse(byId("document").textContent);

function timeOf(date, time) {
  const form = /^(\d{4})-(\d\d)-(\d\d)[T ](\d\d):(\d\d)(?::(\d\d))?$/.exec(`${date} ${time}`);
  if (!form) {
    return null;
  }
  const [year, month, day, hour, minute, second] = form.slice(1).map(digits => Number(digits ?? 0));
  const at = Date.UTC(year, month - 1, day);
  const exists = stampOf(at).startsWith(date) && hour < 24 && minute < 60 && second <= 60;  // 60 is a leap second
  return exists ? at + ((hour * 60 + minute) * 60 + second) * 1000 : null;
}

for (const report of reports) {
  report.at = timeOf(report.date, report.time);
  report.device ??= UNKNOWN_DEVICE;
}
const numberOf = report => String(report.error ?? "(not known)");  // a head may be cut before it
const times = reports.map(report => report.at).filter(at => at !== null);
const earliest = times.reduce((a, b) => Math.min(a, b), Infinity);
const latest = times.reduce((a, b) => Math.max(a, b), -Infinity);
const margin = Math.max((latest - earliest) / 50, MINUTE);

const counted = (count, one, more = `${one}s`) => `${count.toLocaleString("en")} ${count === 1 ? one : more}`;
const isDump = report => report.kind === "dump";
const isTest = report => report.test_switch === "on";

function notesOf(report) {
  return [isDump(report) && "dump", isTest(report) && "test on", report.cut && "cut"].filter(Boolean).join(", ");
}

function whenOf(report) {
  return plain(`${report.date ?? "no date"} ${report.time ?? ""}`);
}

function titleOf(report) {
  return `No. ${report.number}: ${plain(report.device)} ${numberOf(report)}`;
}

// The text that tells a mark of the timeline.
function describe(members) {
  if (members.length > 1) {
    const first = members[0].at, last = members.at(-1).at;
    const bytes = members.reduce((sum, report) => sum + report.bytes, 0);
    const some = [["cut", ({cut}) => cut], ["with the test switch on", isTest], ["dumps", isDump]]
      .map(([name, test]) => [members.filter(test).length, name]).filter(([count]) => count > 0);
    return [`${members.length} reports, ${counted(bytes, "byte")}`, ...some.map(([count, name]) => `${count} ${name}`),
            stampOf(first), first !== last && `to ${stampOf(last)}`,
            first === last ? "click to see one after the other" : "click to zoom in"].filter(Boolean).join("\n");
  }
  const [report] = members;
  return [titleOf(report), whenOf(report), counted(report.bytes, "byte"), notesOf(report)].filter(Boolean).join("\n");
}

// ---- What is chosen

const NOTHING = {device: "", error: "", kind: "", text: "", from: null, to: null};
const state = {...NOTHING, sort: "when", report: null};
let dated = [], undated = [];  // the reports that pass the filters
let drawable = [];             // those with a date, in the order of time

const FACETS = {
  device: {of: report => report.device, all: "All devices"},
  error: {of: numberOf, all: "All numbers"},
  kind: {of: report => report.kind, all: "All kinds"},
};

function patternOf(text, flags) {
  return new RegExp(text.replace(/[.*+?^${}()|[\]\\/]/g, "\\$&"), flags);
}

// The fields of the range: plain ones, since a browser's own show times in a form of another country than the tables.
// A date alone means its whole day.
const DAY_ENDS = {from: "00:00:00", to: "23:59:59"};

function textsOf(report) {
  return [report.content, report.processes, report.device, report.archive, report.file, report.member,
          ...report.places.flatMap(({file, member}) => [file, member]), ...report.attachments.map(({name}) => name)];
}

// Whether a report passes the filters, leaving out the one of the name.
function makeFilter(without) {
  const facets = Object.entries(FACETS).filter(([name]) => state[name] !== "" && name !== without);
  const pattern = state.text && patternOf(state.text, "iu");
  const from = state.from ?? -Infinity, to = state.to ?? Infinity;
  return report => facets.every(([name, {of}]) => of(report) === state[name]) &&
    (report.at === null || (report.at >= from && report.at <= to)) &&
    (!pattern || textsOf(report).some(text => text && pattern.test(text)));
}

// The range that the timeline shows.
function rangeOf() {
  const from = state.from ?? Math.min(earliest - margin, state.to ?? Infinity);
  return {from, to: Math.max(state.to ?? latest + margin, from + SHORTEST_RANGE)};
}

function change(changes) {
  Object.assign(state, changes);
  render();
  saveState();
}

function setRange(from, to) {
  const whole = from <= earliest - margin && to >= latest + margin;
  const seconds = time => Math.round(time / SECOND) * SECOND;
  change(whole ? {from: null, to: null}
               : {from: seconds(from), to: Math.max(seconds(to), seconds(from) + SHORTEST_RANGE)});
}

// Shows a part of the present range, or more than it: moved by shift and stretched by factor, in ranges, and no
// farther than there are reports.
function zoom(factor, shift = 0) {
  if (times.length > 0) {
    const {from, to} = rangeOf(), middle = (from + to) / 2 + shift * (to - from);
    const length = Math.max((to - from) * factor, SHORTEST_RANGE), last = latest + margin - length;
    const start = Math.max(Math.min(middle - length / 2, last), earliest - margin);
    setRange(start, Math.min(start + length, latest + margin));
  }
}

// ---- The state in the address

const addressOf = time => (time === null ? "" : stampOf(time).replace(" ", "T"));

let saving = 0;
function saveState() {
  // Browsers refuse an address that changes with each key that is held down.
  clearTimeout(saving);
  saving = setTimeout(() => {
    const entries = {...state, from: addressOf(state.from), to: addressOf(state.to),
                     report: state.report?.number ?? "", sort: state.sort === "when" ? "" : state.sort};
    const fragment = new URLSearchParams(Object.entries(entries).filter(([, value]) => value !== ""));
    history.replaceState(null, "", `#${fragment}`);
  }, 200);
}

function loadState() {
  const entries = new URLSearchParams(location.hash.slice(1));
  const text = name => entries.get(name) ?? "";
  Object.assign(state, {
    device: text("device"), error: text("error"), kind: text("kind"), text: text("text"),
    from: timeOf(...text("from").split("T")), to: timeOf(...text("to").split("T")),
    sort: COLUMNS.some(({name}) => name === text("sort").replace(/^-/, "")) ? text("sort") : "when",
    report: reports.find(report => String(report.number) === text("report")) ?? null});
  render();
  choose(state.report);
}

// ---- The chosen report

// The text, exactly, with what the search found marked and what cannot be seen made visible.
function makeText(text) {
  const PIECES_MOST = 5000;  // an element each; a dump may be binary
  const search = state.text && patternOf(state.text).source;
  const pattern = new RegExp(`(${HIDDEN}+|\\r(?!\\n))${search && `|${search}`}`, "giu");
  const pre = make("pre");
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

function placeOf({file, member}) {
  return plain(member ? `${file} : ${member}` : file);
}

function makeDetail(report) {
  const fields = [
    ["Kind", report.kind],
    ["Date and time", whenOf(report)],
    ["Device", plain(report.device)],
    ["Error number", numberOf(report)],
    ["Test switch", plain(report.test_switch ?? "not known")],
    ["Size", counted(report.bytes, "byte")],
    ["Found in", make("ul", {}, ...report.places.map(place => make("li", {}, placeOf(place))))],
    ["Archive", plain(report.archive ?? "none")],
  ].flatMap(([name, value]) => [make("dt", {}, name), make("dd", {}, value)]);
  const parts = [make("dl", {}, ...fields)];
  const heading = text => parts.push(make("h3", {}, text));
  const warning = text => parts.push(make("p", {className: "warning"}, text));
  if (report.cut) {
    warning("Its end, or a part of its head, is missing.");
  }
  heading("Content");
  if (report.content_cut) {
    warning("Only the beginning of the content is in this page.");
  }
  if (report.content === null) {
    warning("The content is not in this page.");
  } else {
    parts.push(Object.assign(makeText(report.content), {id: "content"}));
  }
  if (report.attachments.length > 0) {
    heading(`Beside it in the archive (${report.attachments.length})`);
    parts.push(make("ul", {}, ...report.attachments.map(
      ({name, bytes}) => make("li", {}, `${plain(name)}, ${counted(bytes, "byte")}`))));
  }
  if (report.processes) {
    heading("Processes");
    parts.push(Object.assign(makeText(report.processes), {className: "columns"}));
  }
  return parts;
}

function choose(report, {byHand = false} = {}) {
  const changed = state.report !== report;
  state.report = report;
  datedTable.reveal(report);
  undatedTable.reveal(report);
  timeline.show(report);
  renderDetail();
  const detail = byId("detail");
  if (changed) {
    detail.scrollTop = 0;
  }
  if (byHand && detail.getBoundingClientRect().top > innerHeight - 120) {
    detail.scrollIntoView({block: "start"});  // on a narrow window it stands below the table
  }
  saveState();
}

function renderDetail() {
  const {report} = state;
  byId("detail-title").textContent = report ? titleOf(report) : "No report chosen";
  const index = [...dated, ...undated].indexOf(report);
  const hint = !report ? "Choose a report in the timeline or in the table."
    : index < 0 ? "This report does not pass the filters." : "";
  byId("detail-body").replaceChildren(make("p", {className: "hint", hidden: hint === ""}, hint),
                                      ...(report ? makeDetail(report) : []));
  byId("previous").disabled = index <= 0;
  byId("next").disabled = index === dated.length + undated.length - 1;
}

function step(count) {
  const list = [...dated, ...undated];
  if (list.length > 0) {
    const index = list.indexOf(state.report);  // -1: before the first
    choose(list[Math.min(Math.max(index + count, 0), list.length - 1)]);
  }
}

// ---- Everything together

function renderFilters() {
  for (const [name, {of, all}] of Object.entries(FACETS)) {
    const counts = new Map(reports.map(report => [of(report), 0]));
    for (const report of reports.filter(makeFilter(name))) {
      counts.set(of(report), counts.get(of(report)) + 1);
    }
    const figure = text => Number(text) || 0;
    const values = [...counts.keys()].sort((a, b) => (name === "error" ? figure(a) - figure(b) : a < b ? -1 : 1))
      .filter(value => counts.get(value) > 0 || value === state[name]);
    const options = values.map(value => make("option", {value}, `${plain(value)} (${counts.get(value)})`));
    byId(name).replaceChildren(make("option", {value: ""}, all), ...options);
    byId(name).value = state[name];
  }
  if (byId("text").value !== state.text) {
    byId("text").value = state.text;
  }
  for (const name of Object.keys(DAY_ENDS)) {
    byId(name).value = state[name] === null ? "" : stampOf(state[name]);
    byId(name).setCustomValidity("");
  }
}

function render() {
  const passing = reports.filter(makeFilter());
  dated = sortReports(passing.filter(report => report.at !== null));
  undated = sortReports(passing.filter(report => report.at === null));
  drawable = passing.filter(report => report.at !== null).sort((a, b) => a.at - b.at || a.number - b.number);
  renderFilters();
  datedTable.render(dated);
  undatedTable.render(undated);
  byId("undated-section").hidden = undated.length === 0;
  byId("reports-title").textContent = `Reports (${dated.length.toLocaleString("en")})`;
  byId("undated-title").textContent = `Reports without a date (${undated.length})`;
  renderTimeline();
  renderDetail();
}

function renderTimeline() {
  const lanes = timeline.render(drawable, rangeOf(), state.report);
  const passing = dated.length + undated.length, all = counted(reports.length, "report");
  byId("status").textContent =
    (passing === reports.length ? `All ${all}` : `${passing.toLocaleString("en")} of ${all}`) +
    ` in ${counted(lanes, "lane")}` + (undated.length > 0 ? `, ${undated.length} of them without a date` : "");
  byId("whole").disabled = state.from === null && state.to === null;
}

function renderHead() {
  const devices = new Set(reports.map(report => report.device).filter(device => device !== UNKNOWN_DEVICE)).size;
  const errors = new Set(reports.map(report => report.error).filter(error => error !== null)).size;
  const dumps = reports.filter(isDump).length;
  byId("summary").textContent = reports.length === 0 ? "No reports." : [
    `${counted(reports.length, "report")}${dumps > 0 ? ` (${counted(dumps, "dump")} among them)` : ""}`,
    `${counted(devices, "device")}`, `${counted(errors, "error number")}`,
    times.length > 0 && `from ${stampOf(earliest)} to ${stampOf(latest)}`,
    times.length < reports.length && `${reports.length - times.length} without a date`].filter(Boolean).join(" · ");
  byId("problems").hidden = problems.length === 0;
  byId("problems-title").textContent = `⚠ ${counted(problems.length, "problem")} while reading`;
  byId("problem-list").append(...problems.map(({file, text}) => make("li", {}, `${plain(file)}: ${plain(text)}`)));

  const base = {kind: "report", number: 0, cut: false, test_switch: null};
  const legend = [
    [[base], "report"], [[{...base, kind: "dump"}], "dump"], [[{...base, cut: true}], "cut: a part is missing"],
    [[{...base, test_switch: "on"}], "test switch on"], [Array(12).fill(base), "so many; click to zoom in"]];
  for (const [members, text] of legend) {
    const picture = draw(null, "svg", {width: 26, height: 24, viewBox: "-13 -12 26 24", "aria-hidden": true});
    drawMark(picture, members).removeAttribute("data-count");
    byId("legend").append(make("span", {}, picture, text));
  }
  byId("legend").append(make("span", {}, "Drag over the timeline to zoom into a range."));
}

const timeline = new Timeline(byId("lanes"), byId("tip"), {
  setRange, describe,
  // Reports of one second cannot be drawn apart: each click shows the next of them.
  choose: members => choose(members[(members.indexOf(state.report) + 1) % members.length], {byHand: true}),
});
const datedTable = new ReportTable(byId("dated"), "Reports");
const undatedTable = new ReportTable(byId("undated"), "Reports without a date");

for (const name of Object.keys(FACETS)) {
  byId(name).addEventListener("change", event => change({[name]: event.target.value}));
}
for (const [name, clock] of Object.entries(DAY_ENDS)) {
  byId(name).addEventListener("change", ({target}) => {
    const [date, time = clock] = target.value.trim().split(/[T ]+/);
    const at = timeOf(date, time);
    if (at === null && date !== "") {
      target.setCustomValidity("A date, or a date and a time: 2026-11-25 10:11:12");
      target.reportValidity();
    } else {
      change({[name]: at});
    }
  });
}
byId("text").addEventListener("input", event => change({text: event.target.value}));
byId("filters").addEventListener("submit", event => event.preventDefault());
byId("filters").addEventListener("reset", event => {
  event.preventDefault();
  change(NOTHING);
});

const ACTIONS = {
  "earlier": () => zoom(1, -0.5), "later": () => zoom(1, 0.5), "zoom-in": () => zoom(0.5), "zoom-out": () => zoom(2),
  "whole": () => change({from: null, to: null}), "previous": () => step(-1), "next": () => step(1),
};
for (const [id, action] of Object.entries(ACTIONS)) {
  byId(id).addEventListener("click", action);
}

const KEYS = {
  "ArrowDown": () => step(1), "ArrowUp": () => step(-1), "PageDown": () => step(10), "PageUp": () => step(-10),
  "Home": () => step(-Infinity), "End": () => step(Infinity), "+": ACTIONS["zoom-in"], "-": ACTIONS["zoom-out"],
  "0": ACTIONS.whole, "/": () => byId("text").select(),
};
document.addEventListener("keydown", event => {
  const inField = event.target.matches("input:not([type=checkbox]), select");
  const scrolls = event.key.length > 1 && event.target.closest("#detail");  // it is read with these keys
  if (inField && event.key === "Escape") {
    event.target.blur();
  } else if (KEYS[event.key] && !inField && !scrolls && !event.ctrlKey && !event.altKey && !event.metaKey) {
    event.preventDefault();
    KEYS[event.key]();
  }
});

addEventListener("hashchange", loadState);
addEventListener("beforeprint", () => [datedTable, undatedTable].forEach(table => table.renderForPrint()));
addEventListener("afterprint", () => render());
new ResizeObserver(renderTimeline).observe(byId("lanes"));

renderHead();
loadState();
