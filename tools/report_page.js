// The page of dmd-report --html: filters, what they leave, and the chosen report, and their state in the address.

// ---- What is chosen

const NOTHING = {phone: "", device: "", error: "", kind: "", like: "", text: "", from: null, to: null};
const state = {...NOTHING, withTexts: false, sort: "when", order: "-count", report: null};
let dated = [], undated = [];  // those of them that pass the filters

const FACETS = {
  phone: {bit: 1, of: report => report.phone, all: "All phones"},
  device: {bit: 2, of: report => report.device, all: "All devices"},
  error: {bit: 4, of: report => report.error, all: "All numbers"},
  kind: {bit: 8, of: report => report.kind, all: "All kinds"},
  like: {bit: 16, of: likeOf, all: "All texts"},  // chosen in the summary only
};
const OTHER_FILTERS = 32;  // the bit of times and search
const FAILURE = FACETS.device.bit | FACETS.error.bit | FACETS.like.bit;
const failed = new Uint8Array(reports.length);  // for each report, the bits of the filters that it does not pass

// The fields of the range: plain ones, since a browser's own show times in a form of another country than the tables.
// A date alone means its whole day.
const DAY_ENDS = {from: "00:00:00", to: "23:59:59"};

const margin = Math.max((latest - earliest) / 50, MINUTE);
let finder = {text: "", isFound: () => true};

function filterReports() {
  const facets = Object.entries(FACETS).filter(([name]) => state[name] !== "");
  const wanted = facets.map(([name, {bit, of}]) => ({bit, of, value: state[name]}));
  if (finder.text !== state.text) {
    finder = {text: state.text, isFound: state.text ? finderOf(state.text) : () => true};
  }
  const from = state.from ?? -Infinity, to = state.to ?? Infinity;
  for (const report of reports) {
    const isInTime = report.at === null ? state.from === null && state.to === null : report.at >= from && report.at <= to;
    let bits = isInTime && finder.isFound(report) ? 0 : OTHER_FILTERS;
    for (const {bit, of, value} of wanted) {
      bits |= of(report) === value ? 0 : bit;
    }
    failed[report.index] = bits;
  }
}

// Whether a report passes all filters but those of the bits.
const passesBut = bits => ({index}) => (failed[index] & ~bits) === 0;
const passes = passesBut(0);

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

// Chooses the values, or nothing of their kind if just they are chosen.
function toggle(values) {
  const isChosen = Object.entries(values).every(([name, value]) => state[name] === value);
  change(isChosen ? Object.fromEntries(Object.keys(values).map(name => [name, ""])) : values);
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
  if (byTime.length > 0) {
    const {from, to} = rangeOf(), at = state.report?.at;
    const isShown = at >= from && at <= to && shift === 0;  // then it stays in sight
    const middle = isShown ? at : (from + to) / 2 + shift * (to - from);
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
    const entries = {
      ...state, from: addressOf(state.from), to: addressOf(state.to), withTexts: state.withTexts ? "yes" : "",
      report: state.report?.number ?? "", sort: state.sort === "when" ? "" : state.sort,
      order: state.order === "-count" ? "" : state.order};
    const fragment = new URLSearchParams(Object.entries(entries).filter(([, value]) => value !== ""));
    history.replaceState(null, "", `#${fragment}`);
  }, 200);
}

function loadState() {
  const entries = new URLSearchParams(location.hash.slice(1));
  const text = name => entries.get(name) ?? "";
  const columnIn = (columns, name, usual) =>
    (columns.some(column => column.name === text(name).replace(/^-/, "")) ? text(name) : usual);
  for (const name of [...Object.keys(FACETS), "text"]) {
    state[name] = text(name);
  }
  Object.assign(state, {
    from: timeOf(...text("from").split("T")), to: timeOf(...text("to").split("T")),
    withTexts: text("withTexts") === "yes", sort: columnIn(REPORT_COLUMNS, "sort", "when"),
    order: columnIn(GROUP_COLUMNS, "order", "-count"),
    report: reports.find(report => String(report.number) === text("report")) ?? null});
  render();
  choose(state.report);
}

// ---- The chosen report

function choose(report, {byHand = false} = {}) {
  const changed = state.report !== report;
  state.report = report;
  datedTable.reveal(dated.indexOf(report));
  undatedTable.reveal(undated.indexOf(report));
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
                                      ...(report ? makeDetail(report, state.text) : []));
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

let days = null, groups = [];  // of the summary

function renderFilters() {
  const names = Object.keys(FACETS).filter(name => name !== "like" || state.like !== "");
  for (const name of names) {
    const {bit, of, all} = FACETS[name], counts = new Map();
    for (const report of reports) {
      if ((failed[report.index] & ~bit) === 0) {
        const value = of(report);
        counts.set(value, (counts.get(value) ?? 0) + 1);
      }
    }
    if (state[name] !== "" && !counts.has(state[name])) {
      counts.set(state[name], 0);
    }
    const values = [...counts.keys()].sort(
      (a, b) => (name === "error" ? ordered(a) - ordered(b) : compare(a, b)));
    const options = values.map(value => make("option", {value}, `${plain(value)} (${counts.get(value)})`));
    byId(name).replaceChildren(make("option", {value: ""}, all), ...options);
    byId(name).value = state[name];
  }
  byId("like-field").hidden = state.like === "";
  if (byId("text").value !== state.text) {
    byId("text").value = state.text;
  }
  for (const name of Object.keys(DAY_ENDS)) {
    byId(name).value = state[name] === null ? "" : stampOf(state[name]);
    byId(name).setCustomValidity("");
  }
  const set = Object.keys(NOTHING).filter(name => state[name] !== NOTHING[name]).length;
  byId("filters-title").textContent = set > 0 ? `Filters (${set} set)` : "Filters";
}

let sorted = {by: null, reports: []};
function render() {
  filterReports();
  if (sorted.by !== state.sort) {
    sorted = {by: state.sort, reports: sortRows(reports, REPORT_COLUMNS, state.sort)};
  }
  const passing = sorted.reports.filter(passes);
  dated = passing.filter(report => report.at !== null);
  undated = passing.filter(report => report.at === null);
  renderFilters();
  renderSummary();
  renderMap();
  datedTable.render(dated);
  undatedTable.render(undated);
  byId("undated-section").hidden = undated.length === 0;
  byId("reports-title").textContent = `Reports (${figureOf(dated.length)})`;
  byId("undated-title").textContent = `Reports without a date (${undated.length})`;
  renderTimeline();
  renderDetail();
}

function renderSummary() {
  const {from, to} = state.from === null && state.to === null ? mainTimes : {from: earliest, to: latest};
  days = daysOf({from: Math.max(from, state.from ?? from), to: Math.min(to, state.to ?? to)});
  groups = groupsOf(reports.filter(passesBut(FAILURE)), days, state.withTexts);
  document.body.classList.toggle("with-texts", state.withTexts);
  byId("with-texts").checked = state.withTexts;
  byId("summary-title").textContent = `Summary (${counted(groups.length, state.withTexts ? "text" : "error number")})`;
  summaryTable.render(sortRows(groups, GROUP_COLUMNS, state.order));
}

function renderMap() {
  const isSame = !state.withTexts && [state.phone, state.device, state.error, state.like].every(value => value === "");
  phoneMap.render(isSame ? groups : groupsOf(reports.filter(passesBut(FACETS.phone.bit)), days), state.phone);
}

function renderTimeline() {
  const lanes = timeline.render(byTime.filter(passes), rangeOf(), state.report);
  const passing = dated.length + undated.length, all = counted(reports.length, "report");
  byId("status").textContent =
    (passing === reports.length ? `All ${all}` : `${figureOf(passing)} of ${all}`) +
    ` in ${counted(lanes, "lane")}` + (undated.length > 0 ? `, ${undated.length} of them without a date` : "");
  byId("whole").disabled = state.from === null && state.to === null;
}

function renderHead() {
  const devices = new Set(reports.map(report => report.device).filter(device => device !== DUMP)).size;
  const dumps = reports.filter(isDump).length;
  const from = paths.map(path => plain(textOf(path)));
  const fewPaths = from.join(", ").length < 60;
  byId("facts").textContent = [
    reports.length === 0 && "No reports",
    reports.length > 0 && counted(reports.length, "report") + (dumps > 0 ? ` (${counted(dumps, "dump")})` : ""),
    phones.length > 1 && counted(phones.length, "phone"), counted(devices, "device"),
    byTime.length > 0 && `${stampOf(earliest)} to ${stampOf(latest)}`,
    byTime.length < reports.length && `${reports.length - byTime.length} without a date`,
    filter && `only ${plain(filter)}`,
    `made ${made} by dmd-report ${version}${fewPaths ? ` from ${from.join(", ")}` : ""}`].filter(Boolean).join(" · ");
  byId("paths").hidden = fewPaths;
  byId("paths-title").textContent = `from ${counted(from.length, "path")}`;
  byId("path-list").append(...from.map(path => make("li", {}, path)));
  byId("problems").hidden = problems.length === 0;
  const troubled = new Set(problems.map(([phone]) => phone).filter(phone => phone !== null)).size;
  byId("problems-title").textContent = `⚠ ${counted(problems.length, "problem")} while reading` +
    (phones.length > 1 ? `, on ${counted(troubled, "phone")}` : "");
  byId("problem-list").append(...problems.map(
    ([, file, text]) => make("li", {}, `${plain(textOf(file))}: ${plain(textOf(text))}`)));

  const base = {kind: "report", number: 0, cut: false, damaged: false, test_switch: null};
  const legend = [
    [[base], "report"], [[{...base, kind: "dump"}], "dump"], [[{...base, cut: true}], "cut, or of damaged files only"],
    [[{...base, test_switch: "on"}], "test switch on"], [Array(12).fill(base), "so many; choose it to zoom in"]];
  for (const [members, text] of legend) {
    const picture = draw(null, "svg", {width: 26, height: 24, viewBox: "-13 -12 26 24", "aria-hidden": true});
    drawMark(picture, members, 2).removeAttribute("data-count");
    byId("legend").append(make("span", {}, picture, text));
  }
  byId("legend").append(make("span", {}, "Drag over the timeline to zoom into a range."));
  document.body.classList.toggle("one-phone", phones.length < 2);
  byId("map").hidden = phones.length < 2;
  document.body.classList.toggle("no-names", reports.every(report => report.failure.name === ""));
}

const timeline = new Timeline(byId("lanes"), {
  setRange,
  drawAnew: () => renderTimeline(),
  // Reports of one second cannot be drawn apart: each click shows the next of them.
  choose: members => choose(members[(members.indexOf(state.report) + 1) % members.length], {byHand: true}),
});
const phoneMap = new PhoneMap(byId("phone-map"), {
  drawAnew: () => renderMap(),
  choose: (phone, {device, error}) => toggle({phone, device, error}),
});
const summaryTable = new Table(byId("groups"), "Summary", GROUP_COLUMNS, {
  sort: () => state.order,
  sortBy: order => change({order}),
  isChosen: group => group.failure.device === state.device && group.failure.error === state.error &&
    (!state.withTexts || group.like === state.like),
  choose: ({failure: {device, error}, like}) => toggle({device, error, ...(state.withTexts ? {like} : {})}),
  move: () => {},
});
const reportCaller = {
  sort: () => state.sort,
  sortBy: sort => change({sort}),
  isChosen: report => report === state.report,
  choose: report => choose(report, {byHand: true}),
  move: report => choose(report),
};
const datedTable = new Table(byId("dated"), "Reports", REPORT_COLUMNS, reportCaller);
const undatedTable = new Table(byId("undated"), "Reports without a date", REPORT_COLUMNS, reportCaller);

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
byId("with-texts").addEventListener("change", ({target}) => change({withTexts: target.checked, like: ""}));
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

const KEYS = {"+": ACTIONS["zoom-in"], "-": ACTIONS["zoom-out"], "0": ACTIONS.whole, "/": () => byId("text").select()};
document.addEventListener("keydown", event => {
  const inField = event.target.matches("input:not([type=checkbox]), select");
  if (inField && event.key === "Escape") {
    event.target.blur();
  } else if (KEYS[event.key] && !inField && !event.ctrlKey && !event.altKey && !event.metaKey) {
    event.preventDefault();
    KEYS[event.key]();
  }
});

addEventListener("hashchange", loadState);
addEventListener("beforeprint", () => {
  [summaryTable, datedTable, undatedTable].forEach(table => table.renderForPrint());
  [phoneMap, timeline].forEach(chart => chart.drawAll());
});
addEventListener("afterprint", () => render());
const narrow = matchMedia("(max-width: 600px)");
const foldFilters = () => { byId("filters-box").open = !narrow.matches; };
narrow.addEventListener("change", foldFilters);

foldFilters();
renderHead();
loadState();
