// Tables: their columns, their order, and rows only where they are looked at.

const ROW_HEIGHT = 28;     // as in the style
const HEIGHT_MOST = 0.72;  // of the window, as in the style
const PRINTED_MOST = 500;  // rows on paper

// Sorts rows by a column, "-column" for the other way round. Rows that are alike in it stay in their order.
function sortRows(rows, columns, sort) {
  const down = sort.startsWith("-") ? -1 : 1;
  const {of} = columns.find(({name}) => name === sort.replace(/^-/, ""));
  const keyed = rows.map(row => ({row, key: of(row)}));
  keyed.sort((a, b) => (a.key < b.key ? -down : a.key > b.key ? down : 0));
  return keyed.map(({row}) => row);
}

// A table of which only the rows near the visible ones exist. Its columns have: name; title; of(row), what they are
// sorted by; show(row), a text or an element; look, classes of the style, which has their widths by their names; and
// down, whether their largest comes first.
class Table {
  rows = [];
  cursor = -1;  // the row of the keys
  top = 0;      // how far it is scrolled; to ask the browser while things are drawn would cost a layout

  // The caller has sort(), the name of the column; sortBy(name); isChosen(row); choose(row), which a click and Enter
  // do; move(row), which the arrow keys do.
  constructor(root, title, columns, caller) {
    Object.assign(this, {root, columns, caller, name: root.id});
    this.body = make("tbody");
    this.head = make("tr");
    this.table = make("table", {tabIndex: 0, role: "grid", ariaLabel: title}, make("thead", {}, this.head), this.body);
    for (const {name, look = "", down = false} of columns) {
      const button = make("button", {type: "button"});
      const first = down ? `-${name}` : name, second = down ? name : `-${name}`;
      button.addEventListener("click", () => caller.sortBy(caller.sort() === first ? second : first));
      const cell = make("th", {scope: "col", className: look}, button);
      cell.dataset.name = name;
      this.head.append(cell);
    }
    root.append(this.table);
    root.addEventListener("scroll", () => {
      this.top = root.scrollTop;
      this.#renderWindow();
    });
    this.table.addEventListener("keydown", event => this.#press(event));
    this.body.addEventListener("click", event => {
      const row = event.target.closest("tr[data-index]");
      if (row) {
        this.cursor = Number(row.dataset.index);
        caller.choose(this.rows[this.cursor]);
      }
    });
  }

  render(rows) {
    this.rows = rows;
    const chosen = rows.findIndex(this.caller.isChosen);
    this.cursor = chosen >= 0 ? chosen : Math.min(this.cursor, rows.length - 1);
    this.table.ariaRowCount = rows.length + 1;
    const sort = this.caller.sort(), down = sort.startsWith("-");
    for (const [i, {name, title}] of this.columns.entries()) {
      const sorted = name === sort.replace(/^-/, "");
      this.head.cells[i].ariaSort = sorted ? (down ? "descending" : "ascending") : "none";
      this.head.cells[i].firstChild.textContent = sorted ? `${title} ${down ? "▼" : "▲"}` : title;
    }
    this.#renderWindow(true);
  }

  // Brings the row into view, if there is one of that index.
  reveal(index) {
    if (index >= 0) {
      this.cursor = index;
      const top = index * ROW_HEIGHT, shown = this.root.clientHeight - 2 * ROW_HEIGHT;
      this.root.scrollTop = Math.min(top, Math.max(this.root.scrollTop, top - shown));
      this.top = this.root.scrollTop;
    }
    this.#renderWindow(true);
  }

  renderForPrint() {
    this.#renderWindow(true, PRINTED_MOST);
  }

  #press(event) {
    const page = Math.max(1, Math.floor(this.root.clientHeight / ROW_HEIGHT) - 2);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    if (event.target !== this.table || this.rows.length === 0 || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    if (event.key in steps) {
      this.reveal(Math.max(0, Math.min(this.cursor + steps[event.key], this.rows.length - 1)));
      this.caller.move(this.rows[this.cursor]);
    } else if (event.key === "Enter" && this.cursor >= 0) {
      this.caller.choose(this.rows[this.cursor]);
    } else {
      return;
    }
    event.preventDefault();
  }

  #renderWindow(always = false, most = 0) {
    const shown = most || Math.ceil(HEIGHT_MOST * screen.height / ROW_HEIGHT) + 18;
    const wanted = most ? 0 : Math.floor(this.top / ROW_HEIGHT) - 10;
    const first = Math.max(0, Math.min(wanted - wanted % 8, this.rows.length - shown));  // anew each 8 rows
    if (first === this.first && !always) {
      return;
    }
    this.first = first;
    const last = Math.min(first + shown, this.rows.length);
    const rows = this.rows.slice(first, last).map((row, i) => this.#makeRow(row, first + i));
    this.body.replaceChildren(this.#makeSpacer(first), ...rows, this.#makeSpacer(this.rows.length - last));
    if (rows.length === 0) {
      this.body.append(this.#makeNote("No report passes the filters."));
    } else if (most && last < this.rows.length) {
      this.body.append(this.#makeNote(`… and ${this.rows.length - last} more`));
    }
    const cursor = this.body.querySelector(".cursor");
    if (cursor) {
      this.table.setAttribute("aria-activedescendant", cursor.id);
    } else {
      this.table.removeAttribute("aria-activedescendant");
    }
  }

  #makeRow(row, index) {
    const cells = this.columns.map(({look = "", of, show = of}) => {
      const shown = show(row);
      return make("td", {className: look, title: typeof shown === "string" ? shown : ""}, shown);
    });
    const line = make("tr", {id: `${this.name}-${index}`, className: index === this.cursor ? "cursor" : "",
                             ariaRowIndex: index + 2, ariaSelected: this.caller.isChosen(row)}, ...cells);
    line.dataset.index = index;
    return line;
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
