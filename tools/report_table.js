// The tables of reports: their columns, their order, and rows only where they are looked at.

const beginningOf = report => plain((report.content ?? "").slice(0, 400).trimStart().slice(0, 160));
const COLUMNS = [  // of: what they are sorted by; look: classes of the style, which has their widths by their names
  {name: "number", title: "No.", look: "figure minor", of: report => report.number},
  {name: "when", title: "When", of: report => report.at ?? report.time, show: whenOf},
  {name: "device", title: "Device", of: report => report.device, show: report => plain(report.device)},
  {name: "error", title: "Error", look: "figure", of: report => report.error, show: report => report.error ?? ""},
  {name: "notes", title: "Notes", look: "minor", of: notesOf},
  {name: "bytes", title: "Bytes", look: "figure minor", of: report => report.bytes,
   show: report => report.bytes.toLocaleString("en")},
  {name: "begins", title: "Begins with", look: "minor", of: beginningOf},
];
const ROW_HEIGHT = 28;    // as in the style
const PRINTED_MOST = 500;  // rows on paper

// A table of reports, of which only the rows near the visible ones exist.
class ReportTable {
  rows = [];

  constructor(root, title) {
    this.root = root;
    this.body = make("tbody");
    this.head = make("tr");
    this.table = make("table", {tabIndex: 0, role: "grid"},
                      make("thead", {}, this.head), this.body);
    for (const {name, title: text, look = ""} of COLUMNS) {
      const button = make("button", {type: "button"}, text);
      button.addEventListener("click", () => change({sort: state.sort === name ? `-${name}` : name}));
      const cell = make("th", {scope: "col", className: look}, button);
      cell.dataset.name = name;
      this.head.append(cell);
    }
    this.table.setAttribute("aria-label", title);
    root.append(this.table);
    root.addEventListener("scroll", () => this.#renderWindow());
    this.body.addEventListener("click", event => {
      const row = event.target.closest("tr[data-index]");
      if (row) {
        choose(this.rows[row.dataset.index], {byHand: true});
      }
    });
  }

  render(rows) {
    this.rows = rows;
    this.table.setAttribute("aria-rowcount", rows.length + 1);
    for (const cell of this.head.cells) {
      const sorted = cell.dataset.name === state.sort.replace(/^-/, "");
      const down = state.sort.startsWith("-");
      cell.setAttribute("aria-sort", sorted ? (down ? "descending" : "ascending") : "none");
      const title = COLUMNS.find(({name}) => name === cell.dataset.name).title;
      cell.firstChild.textContent = sorted ? `${title} ${down ? "▼" : "▲"}` : title;
    }
    this.#renderWindow(true);
  }

  reveal(report) {
    const index = this.rows.indexOf(report);
    if (index >= 0) {
      const top = index * ROW_HEIGHT, shown = this.root.clientHeight - 2 * ROW_HEIGHT;
      this.root.scrollTop = Math.min(top, Math.max(this.root.scrollTop, top - shown));
    }
    this.#renderWindow(true);
  }

  renderForPrint() {
    this.#renderWindow(true, PRINTED_MOST);
  }

  #renderWindow(always = false, most = 0) {
    const shown = most || Math.ceil(screen.height / ROW_HEIGHT) + 20;
    const wanted = most ? 0 : Math.floor(this.root.scrollTop / ROW_HEIGHT) - 10;
    const first = Math.max(0, Math.min(wanted - wanted % 8, this.rows.length - shown));  // anew each 8 rows
    if (first === this.first && !always) {
      return;
    }
    this.first = first;
    const last = Math.min(first + shown, this.rows.length);
    const rows = this.rows.slice(first, last).map((report, i) => this.#makeRow(report, first + i));
    this.body.replaceChildren(this.#makeSpacer(first), ...rows, this.#makeSpacer(this.rows.length - last));
    if (rows.length === 0) {
      this.body.append(this.#makeNote("No report passes the filters."));
    } else if (most && last < this.rows.length) {
      this.body.append(this.#makeNote(`… and ${this.rows.length - last} more`));
    }
    this.table.setAttribute("aria-activedescendant", this.body.querySelector("[aria-selected=true]")?.id ?? "");
  }

  #makeRow(report, index) {
    const cells = COLUMNS.map(({look = "", of, show = of}) => make("td", {className: look}, String(show(report))));
    const row = make("tr", {id: `row-${report.number}`}, ...cells);
    row.setAttribute("aria-rowindex", index + 2);
    row.setAttribute("aria-selected", report === state.report);
    row.dataset.index = index;
    return row;
  }

  #makeNote(text) {
    return make("tr", {className: "note"}, make("td", {}, text));
  }

  #makeSpacer(count) {
    const cell = make("td");
    cell.style.height = `${count * ROW_HEIGHT}px`;
    return make("tr", {className: "spacer", hidden: count === 0}, cell);
  }
}

function sortReports(list) {
  const down = state.sort.startsWith("-") ? -1 : 1;
  const {of} = COLUMNS.find(({name}) => name === state.sort.replace(/^-/, ""));
  const keyed = list.map(report => ({report, key: of(report)}));
  keyed.sort((a, b) => (a.key < b.key ? -down : a.key > b.key ? down : (a.report.number - b.report.number) * down));
  return keyed.map(({report}) => report);
}
